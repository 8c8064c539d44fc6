#include "engine/QVStatus.h"

#include "engine/QVFontConstants.h"

QVStatus::QVStatus()
{
    fontErrors.reserve(4);
    fixedErrors.reserve(4);
    fixedErrorMessages.reserve(4);
}

QVStatus::~QVStatus() = default;

void QVStatus::setFontError(int code)
{
    if (!fontErrors.contains(code))
        fontErrors.append(code);
}

void QVStatus::setFontErrorInfo(const QString &message)
{
    if (fontErrorsInfo.contains(message))
        return;
    fontErrorsInfo.append(message);
    fixedErrors.append(false);
    fixedErrorMessages.append(QString(""));
}

void QVStatus::setFixedError(bool fixed)
{
    if (!fixedErrors.contains(fixed))
        fixedErrors.append(fixed);
}

void QVStatus::setFixedErrorMessage(const QString &message)
{
    if (!fixedErrorMessages.contains(message))
        fixedErrorMessages.append(message);
}

bool QVStatus::copiedOrMoved() const
{
    return movedToLibrary || movedToQuarantine || copiedToLibrary;
}

bool QVStatus::hasErrors() const
{
    if (fontErrors.isEmpty())
        return false;
    for (qsizetype i = 0; i < fontErrors.size(); ++i) {
        // A class without a message is not a valid state; treat the missing
        // entry as unfixed rather than read past the array.
        if (i >= fixedErrors.size() || !fixedErrors.at(i))
            return true;
    }
    return false;
}

bool QVStatus::isUnreadable() const
{
    return fontErrors.contains(QVErrorClass::Unreadable);
}

int QVStatus::indexOfErrorInfo(const QString &message) const
{
    return int(fontErrorsInfo.indexOf(message));
}

std::shared_ptr<QVStatus> QVStatus::copy() const
{
    return std::make_shared<QVStatus>(*this);
}
