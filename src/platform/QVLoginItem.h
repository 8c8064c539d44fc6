// A helper program that starts with the user's session: an XDG autostart
// entry named after its bundle identifier, and the program started now. A
// helper runs when its bundle identifier is an owned name on the session bus.
#pragma once

#include <QString>

class QVLoginItem
{
public:
    static bool isRunning(const QString &bundleIdentifier);
    // The autostart entry's path ($XDG_CONFIG_HOME/autostart/ID.desktop).
    static QString entryPath(const QString &bundleIdentifier);
    // Starts the program and, once it started, writes its autostart entry.
    // False, with nothing written, when the program cannot be started.
    static bool enable(const QString &bundleIdentifier, const QString &program);
    // Removes the autostart entry and asks a running helper to quit (it
    // answers the Quit call of kControlInterface at kControlPath). False when
    // the entry stays.
    static bool disable(const QString &bundleIdentifier);

    static constexpr const char *kControlPath = "/org/quorvel/Helper";
    static constexpr const char *kControlInterface = "org.quorvel.Helper";
};
