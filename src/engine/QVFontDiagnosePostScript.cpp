// PostScript outline files: the font program in POST resources (Type 1) or in
// the data fork (Type 3).
#include "engine/QVFontConstants.h"
#include "engine/QVFontDiagnose.h"
#include "engine/QVResouceFork.h"

#include <QFileInfo>

namespace
{

constexpr quint32 kPOST = qvFourCC("POST");

} // namespace

QByteArray QVFontDiagnose::postScriptValueInPOST(const QString &path, const char *key)
{
    const qint16 saved = m_resFork->getCurrentResource();
    const qint16 ref = m_resFork->openResourceFile(1, path);
    if (ref < 1)
        return QByteArray();
    QByteArray value;
    const int count = m_resFork->countResourceTypes(ref, kPOST);
    if (m_resFork->resourceError() == 0) {
        // The first resource with the key ends the search, even when the value
        // there is empty.
        bool found = false;
        for (int index = 1; index <= count && !found; ++index) {
            const QVResourceHandle post = m_resFork->getIndexResource(ref, kPOST, index);
            if (!post)
                continue;
            QByteArray text = post->data;
            text.replace('\0', ' ');
            value = findPostScriptValue(text, key, &found);
            m_resFork->releaseResource(post);
        }
    }
    m_resFork->closeResourceFile(ref);
    if (saved > 0 && saved != ref)
        m_resFork->useResourceFile(saved);
    return value;
}

QString QVFontDiagnose::getType1PSname(const QString &path)
{
    return QString::fromUtf8(postScriptValueInPOST(path, "/FontName"));
}

QString QVFontDiagnose::getType1PSversion(const QString &path)
{
    return QString::fromUtf8(postScriptValueInPOST(path, "/version"));
}

QString QVFontDiagnose::getType1FoundrytName(const QString &path)
{
    const qint16 saved = m_resFork->getCurrentResource();
    const qint16 ref = m_resFork->openResourceFile(1, path);
    if (ref < 1)
        return QString();
    QString text;
    const int count = m_resFork->countResourceTypes(ref, kPOST);
    for (int index = 1; index <= count; ++index) {
        const QVResourceHandle post = m_resFork->getIndexResource(ref, kPOST, index);
        if (!post)
            continue;
        // The header comment of the program, as a C string.
        const QByteArray bytes = post->data.mid(32, 512);
        text = QString::fromLatin1(bytes.left(bytes.indexOf('\0') < 0 ? bytes.size() : bytes.indexOf('\0')));
        m_resFork->releaseResource(post);
        if (text.size() > 15)
            break;
    }
    m_resFork->closeResourceFile(ref);
    if (saved > 0 && saved != ref)
        m_resFork->useResourceFile(saved);
    return text.isEmpty() ? text : matchFoundryName(text);
}

qint32 QVFontDiagnose::examinePSfont(const QString &path)
{
    const QString fileName = QFileInfo(path).fileName();
    const qint32 version = getFileVersion(path);
    QString name = getType1PSname(path);
    const QString foundry = getType1FoundrytName(path);
    // Compared with a PC copy of the font by the duplicate pass.
    const QString programVersion = name.isEmpty() ? QString() : getType1PSversion(path);
    QString name533;
    if (!name.isEmpty())
        name533 = get533postScriptName(name);
    else
        name = QStringLiteral("<none>");

    // Multiple-master instances are not examined.
    if (isMultipleMaster(fileName))
        return 0;

    QVStatus &status = *currentStatus;
    auto fill = [&](const QString &fontName, int fontType, const QString &postScriptName) {
        status.fontName = fontName;
        status.fontURL = path;
        status.fontType = fontType;
        status.fontVersion = version;
        status.PSname = postScriptName;
        status.PS533name = name533;
        status.fontFoundry = foundry;
        status.PSversion = programVersion;
    };

    bool pending = false;
    if (doFinderFlags && validateFinderFlags(path)) {
        fill(name, QVFontType::PostScriptType1, name);
        status.setFontError(QVErrorClass::Defect);
        status.setFontErrorInfo(QString::fromUtf8(QVDefect::IncorrectFileFlags));
        pending = true;
    }

    if (name != QLatin1String("<none>")) {
        if (fileName == name || fileName == name533) {
            fill(name, QVFontType::PostScriptType1, name);
        } else {
            fill(fileName, QVFontType::PostScriptType1, name);
            status.setFontError(QVErrorClass::Defect);
            status.setFontErrorInfo(QString::fromUtf8(QVDefect::BadFileName));
            pending = true;
        }
        saveCurrentStatus();
        return pending ? 1 : 0;
    }

    const QString type3Name = getType3PSname(path);
    if (!type3Name.isEmpty() && type3Name != QLatin1String("<none>")) {
        if (doDiagnoseType3) {
            name533.clear();
            fill(type3Name, QVFontType::PostScriptType3, type3Name);
            saveCurrentStatus();
            return pending ? 1 : 0;
        }
        if (pending) {
            saveCurrentStatus();
            return 1;
        }
        return 0;
    }

    fill(fileName, QVFontType::PostScriptType1, QStringLiteral("<none>"));
    status.setFontError(QVErrorClass::Defect);
    status.setFontErrorInfo(QString::fromUtf8(QVDefect::MissingPostScriptName));
    saveCurrentStatus();
    return 1;
}
