// Who and where: the names a report is signed with.
#pragma once

#include <QString>

class QVUserAccount
{
public:
    // The account's full name (the first field of its GECOS entry), else its
    // login name.
    static QString fullUserName();
    // The machine's pretty host name (PRETTY_HOSTNAME of /etc/machine-info),
    // else its host name.
    static QString localizedHostName();
};
