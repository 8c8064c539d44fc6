// Restarts the computer: logind's Reboot over the system bus, which asks for
// rights itself when other users are logged in. Tests put a hook in its place.
#pragma once

#include <QString>
#include <functional>

class QVSystemRestart
{
public:
    // Null when the restart was accepted, else why not.
    static QString restart();
    // Replaces the restart (nullptr: the real one again).
    static void setHook(std::function<QString()> hook);
};
