// A loaded resource: a block of bytes that knows where it came from. Handles are
// shared: the open resource file keeps the one it gave out, so loading the same
// resource twice answers the same handle, and a change made through one holder is
// seen by all. The bytes may be read and resized freely (FOND surgery grows and
// shrinks them); call QVResourceManager::changedResource() and writeResource()
// to put the change into the file.
#pragma once

#include <QByteArray>
#include <memory>

struct QVResourceHandleData {
    // The resource's bytes; the handle's size is data.size().
    QByteArray data;
    // Reference number of the open resource file the handle belongs to; 0 once
    // detached, removed, released or its file closed.
    qint16 homeRefNum = 0;
    // Four-character type code ('FOND' is 0x464F4E44), ID and name (Mac Roman
    // bytes without the length byte) as they are in the file's map.
    quint32 type = 0;
    qint16 id = 0;
    QByteArray name;
    bool hasName = false;
    // Resource attributes from the map (system heap, purgeable, locked,
    // protected, preload); the changed bit lives in `changed`.
    quint8 attributes = 0;
    // Set by changedResource(); cleared when the bytes are written to the file.
    bool changed = false;
    // HLock/HUnlock nesting; byte readers lock while they read.
    int lockCount = 0;
};

// Null means "no handle" (the resource was not found or could not be loaded).
using QVResourceHandle = std::shared_ptr<QVResourceHandleData>;

// A fresh handle of the given size (zero-filled), not belonging to any file,
// ready for QVResouceFork::addResource(). Null when the size is negative or
// beyond what a resource can hold.
QVResourceHandle newHandle(qint64 size = 0);
// A detached copy of the bytes of another handle.
QVResourceHandle newHandleFromBytes(const QByteArray &bytes);
