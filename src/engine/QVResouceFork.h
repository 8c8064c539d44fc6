// The one gateway to resource forks and Finder information. The examiner,
// suitcase surgery and issue resolution all go through it, so every resource
// operation and every resource error message is defined here once.
//
// Reference numbers are 16-bit: -1 means "could not be opened". Handles are
// QVResourceHandle (null = none). Types are four-character codes in 32 bits.
// One process-wide lock guards the layer: hold lock() across an examination or
// a suitcase edit so no other thread changes the current file in between.
//
// Typical use:
//   std::lock_guard guard(QVResouceFork::lock());
//   QVResouceFork fork;
//   const qint16 ref = fork.openResourceFile(1, path);        // -1: fork.resourceError()
//   for (const QVResourceHandle &fond : fork.getResourcesOfType(qvFourCC("FOND"), ref))
//       QVByteReader(fond->data).at(QVFontLayouts::FOND::kEntryCount).i16(); // bounds-checked
//   fork.closeResourceFile(ref);
// Editing: open with 3, useResourceFile(ref), addResource() (it detaches a handle
// taken from another file, so that file is left as it was), or change a handle's
// bytes and call changedResource() + writeResource(), removeResource(); the fork
// is written atomically when the file is closed.
#pragma once

#include "engine/QVMemoryHandler.h"
#include "engine/QVResourceHandle.h"
#include "engine/QVResourceManager.h"
#include "settings/QVSettings.h"

#include <QDateTime>
#include <QList>
#include <QString>
#include <QVariantMap>
#include <memory>
#include <mutex>

// A file reference made from a path: the file exists and its absolute path.
struct QVFSRef {
    QString path;
};

// Four-character code from its text ("FOND" -> 0x464F4E44) and back.
constexpr quint32 qvFourCC(const char (&code)[5])
{
    return (quint32(quint8(code[0])) << 24) | (quint32(quint8(code[1])) << 16)
        | (quint32(quint8(code[2])) << 8) | quint32(quint8(code[3]));
}
QString qvFourCCString(quint32 code);

class QVResouceFork
{
public:
    QVResouceFork();

    // The lock guarding the resource layer (recursive).
    static std::recursive_mutex &lock();

    // Whether the file's fork opens read-only with a number >= 1 and no error;
    // it is closed again at once.
    bool hasResourceFork(const QString &path);
    // Opens the fork with the permission (1 read-only, 3 read-write) and makes
    // it current. Asking for writing creates the fork first (an existing one
    // counts as success). A name of 1025 characters or more returns 0.
    qint16 openResourceFile(quint8 permission, const QString &path);
    // Opens the data fork as a resource file (a data-fork suitcase) read-only;
    // the first argument is ignored. Returns the number or -1.
    qint16 openDataForkAtResourceFile(const QVFSRef *ignored, const QString &path);
    // Creates (when absent) an empty file with the HFS creator and type, gives
    // it an empty fork and leaves it closed. Returns 0 or the error.
    qint16 createNewResourceFileAtPath(const QString &path, quint32 creatorCode, quint32 typeCode);
    // Detaches the handle from its file and adds it to the current file under
    // type, ID and name, writing it. Returns -1 when the name does not convert
    // to Mac Roman, else the resource error.
    qint16 addResource(const QVResourceHandle &h, quint32 type, qint16 resID, const QString &resName);

    qint16 getCurrentResource();
    void useResourceFile(qint16 refNum);

    // Each lookup searches the given file only, then makes the previously
    // current file current again.
    QList<QVResourceHandle> getResourcesOfType(quint32 type, qint16 refNum);
    QVResourceHandle getResourceOfID(qint16 resID, quint32 type, qint16 refNum);
    QVResourceHandle getIndexResource(qint16 refNum, quint32 type, int index);
    // Number of resources of the type in the file (not the number of types).
    int countResourceTypes(qint16 refNum, quint32 type);
    // The first resource of the type with that name in the file, or null.
    QVResourceHandle getNamedResource(const QString &name, quint32 type, qint16 refNum);

    // {"name": string ("<none>" without one), "id": decimal string, "type": uint}.
    QVariantMap getResourceInfo(const QVResourceHandle &h);
    qint16 getHomeResourceRefWithHandle(const QVResourceHandle &h);
    void closeResourceFile(qint16 refNum);
    void releaseResource(const QVResourceHandle &h);
    qint16 resourceError();

    static QString errorMessageForCode(qint32 code);

    // The rest of the resource layer, for suitcase surgery: see QVResourceManager.
    // Removes the handle's resource from its (writable) file.
    qint16 removeResource(const QVResourceHandle &h);
    // Marks a handle changed, and puts its bytes into its file's image.
    qint16 changedResource(const QVResourceHandle &h);
    qint16 writeResource(const QVResourceHandle &h);
    // Cuts a handle loose from its file (the resource stays in the file).
    void detachResource(const QVResourceHandle &h);
    // Writes an open file's changes to disk now (closing does it too).
    qint16 updateResourceFile(qint16 refNum);
    // Handle size and resizing (growth zero-filled); memoryError() after them.
    qint64 getHandleSize(const QVResourceHandle &h);
    bool setHandleSize(const QVResourceHandle &h, qint64 size);
    qint16 memoryError();

    // A string of the sfnt resource's naming table by name ID; "" when none.
    QString getSNFTResourceName(const QVResourceHandle &h, int nameCode);
    // The PostScript name the FOND gives a style (0..47); "<none>" on failure.
    QString getBitmapPSname(const QVResourceHandle &h, int style);
    // Copies the index-th Pascal string of the list at offset into
    // suffixIndices (256 bytes); 0, or 1 when it lies beyond the data.
    int NthStyleName(const QVResourceHandle &h, int index, qint64 offset, unsigned char *suffixIndices);

    // The file's Finder flags, 0 on any error.
    quint16 finderInfoFlags(const QString &path);
    // Sets or clears the masked Finder-flag bits; 0 or the error.
    qint16 setFinderInfoFlag(quint16 mask, bool value, const QString &path);

    // The file's creation date (AppleDouble File Dates entry, else birth time,
    // else modification time) and setting it; see QVForkStorage.
    static QDateTime creationDate(const QString &path);
    static qint16 setCreationDate(const QString &path, const QDateTime &date);

    // false when no file is at the path.
    static bool getFSRef(const QString &path, QVFSRef *ref);
    // Mac Roman Pascal string to string.
    static QString stringWithPascalString(const unsigned char *pascal);
    // String to a Mac Roman Pascal string in buffer (length bytes); false when a
    // character has no Mac Roman form or it does not fit.
    static bool pascalString(const QString &string, unsigned char *strBuffer, int length);
    // Mac Roman helpers for byte arrays.
    static QString fromMacRoman(const QByteArray &bytes);
    static bool toMacRoman(const QString &string, QByteArray *bytes);

    std::shared_ptr<QVMemoryHandler> memoryHandler;
    std::shared_ptr<QVSettings> settings;
};
