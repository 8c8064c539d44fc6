// A test seam for full disks. The lowest functions that put bytes on disk
// (file contents, extended attributes, the store's journal and indexes) ask it
// before each write; a test chooses which write answers ENOSPC, and whether
// the disk then stays full. Outside tests it never fails anything.
#pragma once

class QVWriteFault
{
public:
    // The nth write from now (1: the next) fails; with staysFull, every write
    // after it fails as well.
    static void failWrite(int nth, bool staysFull = true);
    // No more failures; the count starts again from 0.
    static void clear();
    // Called before a write: ENOSPC when this write is to fail, else 0.
    static int check();
    // Writes asked about since the last failWrite() or clear().
    static int count();
    // Called with each write's number before it is made (null: none); a test
    // that stops a process at a chosen write sets it.
    static void setObserver(void (*observer)(int write));
};
