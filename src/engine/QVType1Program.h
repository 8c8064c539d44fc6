// The Type 1 font program of a PC outline file (.pfb segments, .pfa text with
// a hex encrypted part, or .t1 text with a binary one), read from bytes that
// are not trusted: the structure, the cleartext header's names and whether
// the encrypted part is there and looks like a font's private part.
#pragma once

#include <QByteArray>
#include <QByteArrayView>

class QVType1Program
{
public:
    // The bytes are read at once; the object keeps only what it found.
    explicit QVType1Program(QByteArrayView file);

    bool isSegmented() const { return m_segmented; }
    // A segmented file whose segment markers, types and lengths all fit the
    // file. Always true for the text forms.
    bool segmentsSound() const { return m_segmentsSound; }
    // The cleartext begins "%!PS-AdobeFont" or "%!FontType1".
    bool hasHeader() const { return m_hasHeader; }
    // The encrypted part is there, and decrypted it holds a private
    // dictionary and the glyph programs.
    bool encryptedPartSound() const { return m_encryptedSound; }
    qint64 encryptedLength() const { return m_encryptedLength; }

    // The value of a key of the cleartext ("FontName", "FamilyName",
    // "FullName", "Weight", "version", "Notice"): a name or a string, at most
    // 255 bytes; empty when the key is not there.
    QByteArray value(const char *key) const;
    // The comment lines at the head of the cleartext (copyright lines), but
    // the first, which names the format.
    QByteArray headerComments() const;

private:
    void readSegments(QByteArrayView file, QByteArray &encrypted);
    void readText(QByteArrayView file, QByteArray &encrypted);
    void checkEncrypted(const QByteArray &encrypted);

    QByteArray m_clear;
    bool m_segmented = false;
    bool m_segmentsSound = true;
    bool m_hasHeader = false;
    bool m_encryptedSound = false;
    qint64 m_encryptedLength = 0;
};
