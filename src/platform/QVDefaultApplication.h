// Opening a file in the user's default application (a report in the browser)
// from a program without a desktop toolkit.
#pragma once

#include <QString>

class QVDefaultApplication
{
public:
    // Starts xdg-open on the path without waiting. A null string when it
    // started, else the error.
    static QString open(const QString &path);
};
