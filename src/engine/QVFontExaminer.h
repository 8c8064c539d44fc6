// The narrow face of the font examiner that the data manager drives, so the
// records do not depend on how a file is examined.
#pragma once

#include "engine/QVStatus.h"

#include <QList>
#include <QString>

class QVFontExaminer
{
public:
    virtual ~QVFontExaminer() = default;

    virtual void initialize() = 0;
    virtual void setDoActivation(bool doActivation) = 0;
    virtual void setDoLogging(bool) { }
    virtual void examineFont(const QString &path) = 0;
    virtual QList<QVStatusPtr> fontStatusArray() const = 0;
    virtual void finalize() = 0;

    // What the data manager records of the file before examining it.
    virtual bool hasResourceFork(const QString &path) = 0;
    // The file's HFS type code as the platform gives it, in single quotes
    // ("'LWFN'"), or "" when it has none.
    virtual QString quotedTypeCode(const QString &path) = 0;
};
