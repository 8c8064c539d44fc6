#include "settings/QVProgress.h"

#include <QMutexLocker>

QVProgress::QVProgress(QObject *parent)
    : QObject(parent)
{
}

double QVProgress::value() const
{
    QMutexLocker locker(&m_mutex);
    return m_value;
}

double QVProgress::maximum() const
{
    QMutexLocker locker(&m_mutex);
    return m_maximum;
}

QString QVProgress::label() const
{
    QMutexLocker locker(&m_mutex);
    return m_label;
}

QString QVProgress::title() const
{
    QMutexLocker locker(&m_mutex);
    return m_title;
}

bool QVProgress::indeterminate() const
{
    QMutexLocker locker(&m_mutex);
    return m_indeterminate;
}

void QVProgress::setValue(double value)
{
    {
        QMutexLocker locker(&m_mutex);
        m_value = value;
    }
    Q_EMIT changed();
}

void QVProgress::increment(double by)
{
    {
        QMutexLocker locker(&m_mutex);
        m_value += by;
    }
    Q_EMIT changed();
}

void QVProgress::setMaximum(double maximum)
{
    {
        QMutexLocker locker(&m_mutex);
        m_maximum = maximum;
    }
    Q_EMIT changed();
}

void QVProgress::setLabel(const QString &label)
{
    {
        QMutexLocker locker(&m_mutex);
        m_label = label;
    }
    Q_EMIT changed();
}

void QVProgress::setTitle(const QString &title)
{
    {
        QMutexLocker locker(&m_mutex);
        m_title = title;
    }
    Q_EMIT changed();
}

void QVProgress::setIndeterminate(bool indeterminate)
{
    {
        QMutexLocker locker(&m_mutex);
        m_indeterminate = indeterminate;
    }
    Q_EMIT changed();
}

void QVProgress::reset()
{
    {
        QMutexLocker locker(&m_mutex);
        m_value = 0;
        m_maximum = 0;
        m_label.clear();
    }
    Q_EMIT changed();
}
