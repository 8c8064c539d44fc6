// The per-user data folder that holds the quarantine, the reports and the log.
#pragma once

#include <QString>

class QVDataFolder
{
public:
    // $XDG_DATA_HOME/Quorvel (by default ~/.local/share/Quorvel), not created.
    static QString path();
    // The same, created when missing; an empty string when it cannot be made.
    static QString ensure();
};
