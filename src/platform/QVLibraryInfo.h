// The versions of the font libraries the core runs with, for the About window.
#pragma once

#include <QString>

class QVLibraryInfo
{
public:
    // "2.12.1": the library loaded, not the one built against.
    static QString freeTypeVersion();
    static QString fontconfigVersion();
};
