# cmake -DCLI=... -DTEMPLATE=... -DVERSION=... -DOUT=... -P QVManPage.cmake
# Fills the command line's manual page from its own --help: the list of
# commands, and each command's own help where it answers --help. Runs the
# program in a throwaway home, so nothing of the builder's is read or written.
cmake_policy(VERSION 3.25)
set(home "${OUT}.home")
file(REMOVE_RECURSE "${home}")
file(MAKE_DIRECTORY "${home}")
set(env ${CMAKE_COMMAND} -E env HOME=${home} XDG_CONFIG_HOME=${home}/config XDG_DATA_HOME=${home}/data
        XDG_CACHE_HOME=${home}/cache ASAN_OPTIONS=detect_leaks=0)

# Roff reads a leading dot or quote as a request, and a backslash as an escape.
function(qv_roff_escape text out)
  string(REPLACE "\\" "\\e" text "${text}")
  string(REGEX REPLACE "(^|\n)([.'])" "\\1\\\\&\\2" text "${text}")
  set(${out} "${text}" PARENT_SCOPE)
endfunction()

execute_process(COMMAND ${env} ${CLI} --help OUTPUT_VARIABLE help RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "${CLI} --help failed (${status})")
endif()
string(REGEX MATCH "Commands:\n(.*)" _ "${help}")
set(commands "${CMAKE_MATCH_1}")
string(REGEX REPLACE "[ \n]+$" "" commands "${commands}")
if(commands STREQUAL "")
  message(FATAL_ERROR "${CLI} --help lists no commands")
endif()

set(command_help "")
string(REPLACE "\n" ";" lines "${commands}")
foreach(line IN LISTS lines)
  string(STRIP "${line}" line)
  string(REGEX MATCH "^[a-z][a-z-]*" name "${line}")
  if(name STREQUAL "")
    continue()
  endif()
  execute_process(COMMAND ${env} ${CLI} ${name} --help OUTPUT_VARIABLE text ERROR_QUIET RESULT_VARIABLE status
                  TIMEOUT 20)
  if(status EQUAL 0 AND NOT text STREQUAL "")
    qv_roff_escape("${text}" text)
    string(REGEX REPLACE "\n*$" "\n" text "${text}")
    string(APPEND command_help ".SS ${name}\n.nf\n${text}.fi\n")
  endif()
endforeach()

qv_roff_escape("${commands}" commands)
file(READ "${TEMPLATE}" page)
string(REPLACE "@VERSION@" "${VERSION}" page "${page}")
string(REPLACE "@COMMANDS@" "${commands}" page "${page}")
string(REPLACE "@COMMAND_HELP@" "${command_help}" page "${page}")
file(WRITE "${OUT}" "${page}")
file(REMOVE_RECURSE "${home}")
