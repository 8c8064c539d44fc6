#include "QVAboutWindow.h"

#include "platform/QVLibraryInfo.h"

#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QPushButton>
#include <QSysInfo>
#include <QVBoxLayout>
#include <QtWebEngineCore/qtwebenginecoreglobal.h>

QVAboutWindow::QVAboutWindow(QWidget *parent)
    : QDialog(parent)
    , m_version(new QLabel(this))
    , m_details(new QLabel(this))
{
    setObjectName(QStringLiteral("aboutWindow"));
    setWindowTitle(QStringLiteral("About Quorvel"));
    setAttribute(Qt::WA_DeleteOnClose);

    auto *icon = new QLabel(this);
    icon->setPixmap(QIcon(QStringLiteral(":/quorvel/images/quorvel.svg")).pixmap(96, 96));
    icon->setAlignment(Qt::AlignTop | Qt::AlignHCenter);
    auto *name = new QLabel(QStringLiteral("Quorvel"), this);
    QFont big = name->font();
    big.setPointSizeF(big.pointSizeF() * 1.8);
    big.setBold(true);
    name->setFont(big);
    m_version->setText(QStringLiteral("Version %1").arg(QStringLiteral(QV_VERSION)));
    m_version->setTextInteractionFlags(Qt::TextSelectableByMouse);
    auto *summary = new QLabel(
        QStringLiteral("Finds damaged, duplicate and orphaned fonts, repairs or quarantines them, and keeps "
                       "a library of the healthy ones."),
        this);
    summary->setWordWrap(true);

    QString details = QStringLiteral("<p>Copyright © 2026 Quorvel developers. All rights reserved.<br>"
                                     "No licence to copy, modify or redistribute is granted.</p>"
                                     "<p><b>Runs with</b><br>");
    QStringList lines;
    for (const QString &library : libraries())
        lines.append(library.toHtmlEscaped());
    details += lines.join(QStringLiteral("<br>"));
    details += QStringLiteral("</p><p>on %1</p>").arg(QSysInfo::prettyProductName().toHtmlEscaped());
    m_details->setText(details);
    m_details->setTextFormat(Qt::RichText);
    m_details->setWordWrap(true);
    m_details->setTextInteractionFlags(Qt::TextSelectableByMouse);

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);

    auto *text = new QVBoxLayout;
    text->setSpacing(6);
    text->addWidget(name);
    text->addWidget(m_version);
    text->addSpacing(6);
    text->addWidget(summary);
    text->addWidget(m_details);
    auto *row = new QHBoxLayout;
    row->setSpacing(20);
    row->addWidget(icon, 0, Qt::AlignTop);
    row->addLayout(text, 1);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(24, 24, 24, 16);
    layout->addLayout(row);
    layout->addWidget(buttons);
    setFixedWidth(520);
}

QStringList QVAboutWindow::libraries()
{
    return {
        QStringLiteral("Qt %1 (widgets, SVG, printing, D-Bus, network)").arg(QString::fromLatin1(qVersion())),
        QStringLiteral("Qt WebEngine %1 (Chromium %2)")
            .arg(QString::fromLatin1(qWebEngineVersion()), QString::fromLatin1(qWebEngineChromiumVersion())),
        QStringLiteral("FreeType %1").arg(QVLibraryInfo::freeTypeVersion()),
        QStringLiteral("Fontconfig %1").arg(QVLibraryInfo::fontconfigVersion())
    };
}
