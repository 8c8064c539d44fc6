// The per-user data folder that holds the quarantine, the reports and the log.
// It and its subfolders are private to the user (0700): the quarantine holds
// the only copy of some fonts, and nobody else may delete or swap them.
#pragma once

#include <QString>

class QVDataFolder
{
public:
    // $XDG_DATA_HOME/Quorvel (by default ~/.local/share/Quorvel), not created.
    static QString path();
    // The same, created 0700 when missing; an existing one of the user's that
    // others may enter is made private again. An empty string when it cannot
    // be made.
    static QString ensure();
    // A subfolder of it ("Quarantine", "Reports"), made and kept private the
    // same way, with the data folder; an empty string when it cannot be made.
    static QString ensureSubfolder(const QString &name);
};
