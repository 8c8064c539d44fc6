// The state of one long piece of work (a bar and its label), observed by the
// GUI's progress bars and the command line's terminal bar. Setters may be
// called from any thread; changes are signalled to the observer's thread.
#pragma once

#include <QMutex>
#include <QObject>
#include <QString>
#include <atomic>

class QVProgress : public QObject
{
    Q_OBJECT

public:
    explicit QVProgress(QObject *parent = nullptr);

    double value() const;
    double maximum() const;
    QString label() const;
    QString title() const;
    bool indeterminate() const;

    void setValue(double value);
    void increment(double by = 1.0);
    void setMaximum(double maximum);
    void setLabel(const QString &label);
    void setTitle(const QString &title);
    void setIndeterminate(bool indeterminate);
    // Value and maximum back to 0, label cleared.
    void reset();

Q_SIGNALS:
    void changed();

private:
    void notify();

    mutable QMutex m_mutex;
    std::atomic<bool> m_notifyPending { false };
    double m_value = 0;
    double m_maximum = 0;
    QString m_label;
    QString m_title;
    bool m_indeterminate = false;
};
