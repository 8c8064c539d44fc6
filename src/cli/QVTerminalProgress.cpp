#include "cli/QVTerminalProgress.h"

#include "cli/QVCliCommand.h"
#include "settings/QVProgress.h"

#include <algorithm>
#include <sys/ioctl.h>
#include <unistd.h>

namespace
{
// Redrawing more often than this only costs time.
constexpr qint64 kRedrawIntervalMs = 100;
constexpr int kBarWidth = 20;
} // namespace

QVTerminalProgress::QVTerminalProgress(QVProgress *progress, FILE *stream, QObject *parent)
    : QObject(parent)
    , m_progress(progress)
    , m_stream(stream)
    , m_enabled(stream && isatty(fileno(stream)) && !QVCliCommand::quiet())
{
    if (m_progress)
        connect(m_progress, &QVProgress::changed, this, &QVTerminalProgress::changed);
    m_redrawTimer.setSingleShot(true);
    connect(&m_redrawTimer, &QTimer::timeout, this, &QVTerminalProgress::draw);
}

QVTerminalProgress::~QVTerminalProgress()
{
    clear();
}

QString QVTerminalProgress::formatLine(double value, double maximum, const QString &label, int width)
{
    const double fraction = maximum > 0 ? std::clamp(value / maximum, 0.0, 1.0) : 0.0;
    auto line = [&](int barWidth) {
        const int filled = int(fraction * barWidth + 0.5);
        QString text = QLatin1Char('[') + QString(filled, QLatin1Char('#'))
            + QString(barWidth - filled, QLatin1Char('-')) + QStringLiteral("] ")
            + QStringLiteral("%1%").arg(int(fraction * 100 + 0.5), 3);
        if (!label.isEmpty())
            text += QStringLiteral("  ") + label;
        return text;
    };
    // A narrow terminal gets a shorter bar before the text is cut.
    QString text = line(kBarWidth);
    if (width > 0 && text.size() > width)
        text = line(kBarWidth / 2);
    if (width > 0 && text.size() > width)
        text.truncate(width);
    return text;
}

int QVTerminalProgress::terminalWidth() const
{
    winsize size {};
    if (ioctl(fileno(m_stream), TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
        return size.ws_col - 1;
    return 79;
}

void QVTerminalProgress::changed()
{
    if (!m_enabled)
        return;
    if (m_drawn && m_sinceDraw.isValid() && m_sinceDraw.elapsed() < kRedrawIntervalMs) {
        // Too soon: draw the latest state a little later, so that a change
        // followed by a quiet spell still reaches the screen.
        if (!m_redrawTimer.isActive())
            m_redrawTimer.start(int(kRedrawIntervalMs - m_sinceDraw.elapsed()));
        return;
    }
    draw();
}

void QVTerminalProgress::draw()
{
    if (!m_enabled || !m_progress)
        return;
    const QString label = m_phase ? m_phase(m_progress->label()) : m_progress->label();
    const QString line = formatLine(m_progress->value(), m_progress->maximum(), label, terminalWidth());
    // Return to the start of the line and erase what was there.
    std::fprintf(m_stream, "\r\033[K%s", line.toLocal8Bit().constData());
    std::fflush(m_stream);
    m_drawn = true;
    m_sinceDraw.start();
}

void QVTerminalProgress::clear()
{
    m_redrawTimer.stop();
    if (!m_enabled || !m_drawn)
        return;
    std::fprintf(m_stream, "\r\033[K");
    std::fflush(m_stream);
    m_drawn = false;
}
