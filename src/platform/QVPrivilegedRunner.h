// Runs a system tool with administrator rights. The one road to pkexec: an
// argument vector, never a shell line. Tests install their own runner so that
// refusals and failures can be produced without a password prompt.
#pragma once

#include <QString>
#include <QStringList>
#include <memory>

class QVPrivilegedRunner
{
public:
    static constexpr const char *kNotAuthorized = "Not Authorized";

    // launcher: the program that grants the rights (its arguments are the tool
    // and the tool's arguments). Empty means /usr/bin/pkexec, or no launcher at
    // all when the process already runs as root, where pkexec has nothing to
    // grant and may lack a polkit daemon to ask.
    explicit QVPrivilegedRunner(const QString &launcher = QString());
    virtual ~QVPrivilegedRunner();
    QVPrivilegedRunner(const QVPrivilegedRunner &) = delete;
    QVPrivilegedRunner &operator=(const QVPrivilegedRunner &) = delete;

    // Runs program (a full path; any other is refused with status -1) with
    // arguments and waits for it: the password prompt needs the answer before
    // we can tell whether the move or removal happened. Returns a null string
    // on success, "Not Authorized" when the user dismissed or was refused the
    // prompt, else "Authorization Error: %i" with the status (-1 when the
    // launcher could not be started or crashed).
    virtual QString runWithAdministratorRights(const QString &program, const QStringList &arguments);

    // The full argument vector that runWithAdministratorRights starts, launcher first.
    QStringList commandLine(const QString &program, const QStringList &arguments) const;

    // The error text for a launcher's exit status; null for 0.
    static QString errorTextForExitStatus(int status);

    // The runner every privileged operation uses. Tests replace it; passing
    // nullptr restores the default one.
    static std::shared_ptr<QVPrivilegedRunner> shared();
    static void setShared(std::shared_ptr<QVPrivilegedRunner> runner);

private:
    QString m_launcher;
};
