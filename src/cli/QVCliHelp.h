// The help of a command: its synopsis, what it does, its options and an
// example. The same text makes the command's --help and the manual page.
#pragma once

#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>

class QVCliHelp
{
public:
    struct Command {
        QString name;
        QString summary;
        // One line per form, without the program's name.
        QStringList synopsis;
        // Paragraphs separated by an empty line.
        QString description;
        // Option (with its argument) and what it does.
        QList<QPair<QString, QString>> options;
        // Command lines, each with the words after the program's name.
        QStringList examples;
    };

    // The --help text of a command.
    static QString text(const Command &command);
    // The program's own --help: its synopsis, global options and the commands.
    static QString programText(const QList<Command> &commands);
    // The manual page (section 1) of the program and all its commands.
    static QString manPage(const QList<Command> &commands, const QString &version);

    // Options every command takes, and how the program ends.
    static QList<QPair<QString, QString>> globalOptions();
    static QString exitStatus();
};
