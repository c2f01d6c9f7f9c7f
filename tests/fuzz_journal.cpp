// libFuzzer target: arbitrary bytes as the journal's file. A broken promise aborts with its text.
#include "journalpromises.h"

#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString broken = brokenJournalPromise(QByteArray(reinterpret_cast<const char *>(data), int(size)));
    if (!broken.isEmpty()) {
        std::fprintf(stderr, "journal promise broken: %s\n", broken.toLocal8Bit().constData());
        std::abort();
    }
    return 0;
}
