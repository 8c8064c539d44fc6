// The JSON form of the font records, keyed by the records' field names. Every
// command that prints fonts uses it, so scan, examine and diagnose agree.
#pragma once

#include "engine/QVFontFile.h"

#include <QJsonObject>

class QVFontDataManager;
class QVJsonStream;

class QVRecordJson
{
public:
    static QJsonObject statusToJson(const QVStatus &status);
    static QJsonObject fontFileToJson(const QVFontFile &fontFile);
    // fontFileToJson's object, written straight to a stream.
    static void writeFontFile(QVJsonStream &stream, const QVFontFile &fontFile);
    // {"totalFonts":N,"foundProblemFonts":B,"fontFiles":[...],"unreadable":[PATH...]}
    static QJsonObject dataManagerToJson(const QVFontDataManager &dataMgr);
    // The members that follow "fontFiles": "foundProblemFonts", "totalFonts"
    // and "unreadable" (what a scan could not read: neither sound nor damaged).
    static void writeClosingMembers(QVJsonStream &stream, const QVFontDataManager &dataMgr);
};
