// The resource layer of the process: open resource files by reference number,
// the current resource file, loading, adding, removing and writing resources,
// and the last resource and memory errors. It stands in for the Mac Resource
// Manager, with its codes (QVResourceError) and its one-current-file model.
//
// Everything here is guarded by one process-wide recursive lock (lock()); the
// public functions take it themselves, and code that needs several calls to see
// one consistent state (an examination, a suitcase edit) holds it across them.
//
// Forks are read whole when opened. Changes are kept in memory and written back
// atomically by updateResourceFile() and closeResourceFile(); a fork open for
// writing holds an advisory lock on its file so that no other process (and no
// second open here) writes or reads it meanwhile (-49).
#pragma once

#include "engine/QVResourceHandle.h"
#include "platform/QVResourceError.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <mutex>

// Permissions of openResourceFile().
namespace QVPermission
{
constexpr quint8 Read = 1;
constexpr quint8 Write = 2;
constexpr quint8 ReadWrite = 3;
} // namespace QVPermission

class QVResourceManager
{
public:
    // The lock guarding the whole resource layer (and the byte readers' shared
    // buffers). Hold it across every multi-step use.
    static std::recursive_mutex &lock();

    // Opens the resource fork of a file, wherever it lives, and makes it the
    // current resource file. Returns its reference number (1 or more), or -1
    // with resError() set: -43 no file, -193 no fork, -199 damaged map, -54 not
    // readable (or a read-only place asked for writing), -49 open for writing
    // elsewhere. Opening a fork already open here answers the same number.
    static qint16 openResFile(const QString &path, quint8 permission);
    // The same for the data fork of a file read as a resource file (.dfont);
    // always read-only.
    static qint16 openDataForkResFile(const QString &path);
    // Creates an empty fork for an existing file, in the file's fork place
    // (an AppleDouble sidecar when it has none). Returns 0, -48 when the file
    // already has a fork (a damaged one included: it is never overwritten),
    // -43 when there is no file, or the storage error.
    static qint16 createResFork(const QString &path);
    // Writes back a changed fork and closes it. The next file in the chain
    // becomes current when the closed one was.
    static void closeResFile(qint16 refNum);
    // Writes back a changed fork, keeping it open. Returns the error.
    static qint16 updateResFile(qint16 refNum);

    static qint16 curResFile();
    // Makes an open file current; an unknown number sets resError() -193 and
    // changes nothing.
    static void useResFile(qint16 refNum);
    // The open file's path and whether it may be written; empty/false when not open.
    static QString pathOfResFile(qint16 refNum);
    static bool isWritable(qint16 refNum);

    // Lookups in the current file only (the "1" calls of the Mac).
    static int count1Resources(quint32 type);
    static int count1Types();
    static quint32 get1IndType(int oneBasedIndex);
    static QVResourceHandle get1IndResource(quint32 type, int oneBasedIndex);
    static QVResourceHandle get1Resource(quint32 type, qint16 id);
    static QVResourceHandle get1NamedResource(quint32 type, const QByteArray &name);

    // Adds a detached handle to the current file under type, ID and name (Mac
    // Roman bytes; an empty name is stored as none). -194 when the handle still belongs to a file, no file is
    // current or the file is read-only.
    static qint16 addResource(
        const QVResourceHandle &h, quint32 type, qint16 id, const QByteArray &name, bool hasName = true);
    // Removes the handle's resource from its file; the handle keeps its bytes
    // and becomes detached.
    static qint16 removeResource(const QVResourceHandle &h);
    // Marks the handle's bytes as changed (to be written).
    static qint16 changedResource(const QVResourceHandle &h);
    // Puts a changed handle's bytes into its file's image.
    static qint16 writeResource(const QVResourceHandle &h);
    // Cuts the handle from its file (the resource stays in the file).
    static void detachResource(const QVResourceHandle &h);
    // Gives up the file's hold of the handle; the holder keeps its bytes.
    static void releaseResource(const QVResourceHandle &h);
    // Changes name and ID of a resource in its file.
    static qint16 setResInfo(const QVResourceHandle &h, qint16 id, const QByteArray &name);
    static qint16 homeResFile(const QVResourceHandle &h);
    // Size of the handle's resource as stored in its file (-1 when not a resource).
    static qint64 getResourceSizeOnDisk(const QVResourceHandle &h);

    // Resizes a handle (zero-filling growth). Sets memError() -108 and returns
    // false when the size is negative or beyond a resource's reach.
    static bool setHandleSize(const QVResourceHandle &h, qint64 size);
    static qint64 getHandleSize(const QVResourceHandle &h);

    static qint16 resError();
    static qint16 memError();
    // For the layer's own use: sets the last resource error.
    static void setResError(qint16 error);

    // Closes every open file (writing back changes); used at exit and by tests.
    static void closeAll();
    // Reference numbers of the open files, newest first.
    static QList<qint16> openFiles();
};
