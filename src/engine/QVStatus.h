// One font inside a font file: what the examiner read and every defect found.
#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <memory>

class QVStatus
{
public:
    QVStatus();
    ~QVStatus();
    QVStatus(const QVStatus &other) = default;
    QVStatus &operator=(const QVStatus &other) = default;

    // Adds an error class unless it is already there.
    void setFontError(int code);
    // Adds a defect message unless it is already there, growing the three
    // parallel arrays together.
    void setFontErrorInfo(const QString &message);
    void setFixedError(bool fixed);
    void setFixedErrorMessage(const QString &message);

    bool copiedOrMoved() const;
    // True when one of the first fontErrors.size() defects is unfixed. The bound
    // is the number of error classes, not of messages: a status whose defects
    // all sit under class 0 counts as repaired once its first one is fixed.
    bool hasErrors() const;
    // The examiner could not read the file (or its fork or Finder info).
    bool isUnreadable() const;

    // Index of a defect message in fontErrorsInfo, or -1.
    int indexOfErrorInfo(const QString &message) const;

    std::shared_ptr<QVStatus> copy() const;

    bool movedToQuarantine = false;
    bool movedSisterToQuarantine = false;
    bool movedToLibrary = false;
    bool movedSisterToLibrary = false;
    bool copiedToLibrary = false;
    bool copiedSisterToLibrary = false;
    qint32 parentIndex = 0;
    qint32 index = 0;
    qint32 fontType = 0;
    qint32 fontVersion = 0;
    qint32 fontSize = 0;
    qint32 fontID = 0;
    // The ID of the sfnt resource a suitcase's outline font was read from; -1
    // for every other font.
    qint32 sfntResourceID = -1;
    QString fontURL;
    QString fontName;
    QString trueTypeFontName;
    QString familyName;
    QString PSname;
    QString PS533name;
    // The font program's own version text (its "/version"), where it has one.
    QString PSversion;
    QString fontStyle;
    QString fontFoundry;
    QList<int> fontErrors;
    QStringList fontErrorsInfo;
    QList<bool> fixedErrors;
    QStringList fixedErrorMessages;
    // Null when there was no error.
    QString movedToQuarantineErrorInfo;
    QString movedToLibraryErrorInfo;
    QString copiedToLibraryErrorInfo;
};

using QVStatusPtr = std::shared_ptr<QVStatus>;
