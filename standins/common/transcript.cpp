#include "transcript.h"

#include <cstdio>
#include <ctime>

namespace {
bool timestamps = false;
} // namespace

void setTranscriptTimestamps(bool on)
{
    timestamps = on;
}

void printTranscript(const QString &line)
{
    if (timestamps) {
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        std::printf("[%ld.%06ld] ", long(now.tv_sec), long(now.tv_nsec / 1000));
    }
    std::printf("%s\n", line.toLocal8Bit().constData());
}
