#include "platform/QVWriteFault.h"

#include <atomic>
#include <cerrno>

namespace
{

std::atomic<int> writes { 0 };
// 0: no failure chosen.
std::atomic<int> failingWrite { 0 };
std::atomic<bool> full { false };
std::atomic<void (*)(int)> observer { nullptr };

} // namespace

void QVWriteFault::failWrite(int nth, bool staysFull)
{
    writes = 0;
    failingWrite = nth;
    full = staysFull;
}

void QVWriteFault::clear()
{
    writes = 0;
    failingWrite = 0;
    full = false;
}

int QVWriteFault::check()
{
    const int n = ++writes;
    if (const auto watch = observer.load())
        watch(n);
    const int chosen = failingWrite.load();
    if (chosen > 0 && (n == chosen || (full && n > chosen)))
        return ENOSPC;
    return 0;
}

void QVWriteFault::setObserver(void (*watch)(int))
{
    observer = watch;
}

int QVWriteFault::count()
{
    return writes.load();
}
