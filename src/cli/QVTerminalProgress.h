// Draws a QVProgress as one line on the terminal: a bar, the percentage, the
// phase the run is in and the label ("Estimated time remaining: ..."). Draws
// nothing when its stream is not a terminal, so piped output stays clean.
#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>
#include <cstdio>
#include <functional>

class QVProgress;

class QVTerminalProgress : public QObject
{
    Q_OBJECT

public:
    // Draws only when enabled; by default, when stream is a terminal.
    explicit QVTerminalProgress(QVProgress *progress, FILE *stream = stdout, QObject *parent = nullptr);
    ~QVTerminalProgress() override;

    bool isEnabled() const { return m_enabled; }
    // Makes the text beside the bar from the progress's label at each
    // drawing, naming the phase the run is in ("Examining (N font files)").
    void setPhase(std::function<QString(const QString &label)> phase) { m_phase = std::move(phase); }
    void setEnabled(bool enabled) { m_enabled = enabled; }
    // Redraws now, whatever the time since the last drawing.
    void draw();
    // Erases the line so that other output starts clean.
    void clear();

    // The line for a value and maximum, fitted to width columns.
    static QString formatLine(double value, double maximum, const QString &label, int width);

private:
    void changed();
    int terminalWidth() const;

    QPointer<QVProgress> m_progress;
    FILE *m_stream;
    bool m_enabled;
    bool m_drawn = false;
    std::function<QString(const QString &label)> m_phase;
    QTimer m_redrawTimer;
    QElapsedTimer m_sinceDraw;
};
