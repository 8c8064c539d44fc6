#include "settings/QVProgress.h"

#include <QMutexLocker>
#include <QThread>

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
    notify();
}

void QVProgress::increment(double by)
{
    {
        QMutexLocker locker(&m_mutex);
        m_value += by;
    }
    notify();
}

void QVProgress::setMaximum(double maximum)
{
    {
        QMutexLocker locker(&m_mutex);
        m_maximum = maximum;
    }
    notify();
}

void QVProgress::setLabel(const QString &label)
{
    {
        QMutexLocker locker(&m_mutex);
        m_label = label;
    }
    notify();
}

void QVProgress::setTitle(const QString &title)
{
    {
        QMutexLocker locker(&m_mutex);
        m_title = title;
    }
    notify();
}

void QVProgress::setIndeterminate(bool indeterminate)
{
    {
        QMutexLocker locker(&m_mutex);
        m_indeterminate = indeterminate;
    }
    notify();
}

void QVProgress::reset()
{
    {
        QMutexLocker locker(&m_mutex);
        m_value = 0;
        m_maximum = 0;
        m_label.clear();
    }
    notify();
}

void QVProgress::notify()
{
    // Observers on the object's own thread hear at once. From a worker one
    // hand-off is queued at a time, however many changes come before it runs:
    // a walk over many small files must not wake the window once a file.
    if (QThread::currentThread() == thread()) {
        Q_EMIT changed();
        return;
    }
    if (m_notifyPending.exchange(true))
        return;
    QMetaObject::invokeMethod(
        this,
        [this] {
            m_notifyPending = false;
            Q_EMIT changed();
        },
        Qt::QueuedConnection);
}

// Compiled here, not with the rest of the core's meta-objects, so that a
// program using only the settings (the auto-scan handler) links no more.
#include "moc_QVProgress.cpp"
