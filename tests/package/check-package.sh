#!/usr/bin/env bash
# Builds the Debian package from a build tree and checks what it holds: the
# programs, the desktop entry, the icons at their sizes, the AppStream data,
# the manual pages, the polkit policy, and the fields apt needs.
# Usage: check-package.sh BUILD_DIR
set -euo pipefail
build=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# No compression: the file list is what is checked, and it keeps this quick.
(cd "$build" && cpack -G DEB -B "$work/out" -D CPACK_DEBIAN_COMPRESSION_TYPE=none >"$work/cpack.log") \
  || { cat "$work/cpack.log"; exit 1; }
deb=$(ls "$work"/out/quorvel_*_amd64.deb)
dpkg-deb -c "$deb" | awk '{print $6}' | sed 's|^\./|/|' >"$work/files"
fail=0
need() { grep -qx "$1" "$work/files" || { echo "missing from the package: $1"; fail=1; }; }
need /usr/bin/quorvel
need /usr/bin/quorvel-cli
for helper in quorvel-handler quorvel-scheduler; do
  # The helpers come with their own build targets; packaged when built.
  if [ -x "$build/bin/$helper" ]; then need "/usr/bin/$helper"; fi
done
need /usr/share/applications/org.quorvel.Quorvel.desktop
need /usr/share/metainfo/org.quorvel.Quorvel.metainfo.xml
need /usr/share/polkit-1/actions/org.quorvel.Quorvel.policy
need /usr/share/icons/hicolor/scalable/apps/org.quorvel.Quorvel.svg
need /usr/share/man/man1/quorvel-cli.1.gz
need /usr/share/man/man1/quorvel.1.gz
need /usr/share/doc/quorvel/copyright
need /usr/share/doc/quorvel/changelog.gz
if grep -v '^/usr/' "$work/files" | grep -qv '^/$'; then
  echo "files outside /usr:"; grep -v '^/usr/' "$work/files" | grep -v '^/$'; fail=1
fi

dpkg-deb -x "$deb" "$work/root"
root=$work/root/usr/share
for size in 16 22 24 32 48 64 128 256 512; do
  png=$root/icons/hicolor/${size}x${size}/apps/org.quorvel.Quorvel.png
  # Width and height are the big-endian words at bytes 16 and 20 of a PNG.
  got=$(python3 -c 'import struct,sys; d=open(sys.argv[1],"rb").read(24); print("%dx%d" % struct.unpack(">II", d[16:24]) if d[:8]==b"\x89PNG\r\n\x1a\n" else "not-png")' "$png" 2>/dev/null || echo missing)
  [ "$got" = "${size}x${size}" ] || { echo "icon $size: $got"; fail=1; }
done
desktop-file-validate "$root/applications/org.quorvel.Quorvel.desktop" || fail=1
grep -qx 'Exec=quorvel %F' "$root/applications/org.quorvel.Quorvel.desktop" || { echo "Exec without %F"; fail=1; }
appstreamcli validate --no-net "$root/metainfo/org.quorvel.Quorvel.metainfo.xml" >"$work/as.log" \
  || { cat "$work/as.log"; fail=1; }
# The manual page lists every command that --help lists, and reads without warnings.
# (troff writes a hyphen as "\-".)
zcat "$root/man/man1/quorvel-cli.1.gz" | sed 's/\\-/-/g' >"$work/quorvel-cli.1"
commands=$(ASAN_OPTIONS=detect_leaks=0 "$build/bin/quorvel-cli" --help | sed -n '/^Commands:/,/^$/p' | awk 'NR>1 && NF{print $1}')
[ -n "$commands" ] || { echo "quorvel-cli --help lists no commands"; fail=1; }
for cmd in $commands; do
  grep -qw -- "$cmd" "$work/quorvel-cli.1" || { echo "man page lacks the command $cmd"; fail=1; }
done
warnings=$(LC_ALL=C.UTF-8 groff -man -Tutf8 -ww -z "$work/quorvel-cli.1" 2>&1 || true)
[ -z "$warnings" ] || { echo "man page: $warnings"; fail=1; }

depends=$(dpkg-deb -f "$deb" Depends)
for dep in libqt6widgets6 libqt6webenginewidgets6 libqt6webenginecore6-bin libfreetype6 libfontconfig1 fontconfig pkexec; do
  [[ ",$depends," == *"$dep"* ]] || { echo "Depends lacks $dep: $depends"; fail=1; }
done
exit $fail
