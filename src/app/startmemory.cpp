#include "app/startmemory.h"

#include <QObject>
#include <QTimer>

#include <chrono>
#include <cstring>

#include <link.h>
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;

constexpr int kLargeBlock = 64 * 1024; // bytes
constexpr auto kStart = 20s; // with the first replies

// Only what was never writable: the rest differs from the file.
int giveBackLibrary(dl_phdr_info *library, size_t size, void *data)
{
    Q_UNUSED(size)
    const auto page = *static_cast<const quintptr *>(data);
    for (int i = 0; i < library->dlpi_phnum; ++i) {
        const auto &segment = library->dlpi_phdr[i];
        if (segment.p_type != PT_LOAD || (segment.p_flags & PF_W) != 0)
            continue;
        const quintptr begin = (library->dlpi_addr + segment.p_vaddr) & ~(page - 1);
        const quintptr end = library->dlpi_addr + segment.p_vaddr + segment.p_memsz;
        void *address = nullptr;
        std::memcpy(&address, &begin, sizeof address);
        madvise(address, end - begin, MADV_DONTNEED);
    }
    return 0;
}

} // namespace

// Qt's few threads need no heaps of their own, and the memory of a screenshot goes back
// to the system at once.
void saveMemory()
{
    mallopt(M_ARENA_MAX, 1);
    mallopt(M_MMAP_THRESHOLD, kLargeBlock);
    mallopt(M_TRIM_THRESHOLD, kLargeBlock);
}

void giveBackAfterStart(QObject *parent)
{
    QTimer::singleShot(kStart, parent, [] {
        auto page = static_cast<quintptr>(sysconf(_SC_PAGESIZE));
        dl_iterate_phdr(giveBackLibrary, &page);
        malloc_trim(0);
    });
}
