#ifndef TRANSCRIPT_H
#define TRANSCRIPT_H

#include <QString>

// The stand-ins' transcript on standard output, one line per event. With timestamps on, each line
// starts with the system-wide monotonic clock in seconds, so lines of different processes can be
// compared: the benchmark measures latencies that way, and the demo prints its transcript in the
// order things happened.
void setTranscriptTimestamps(bool on);
void printTranscript(const QString &line);

#endif // TRANSCRIPT_H
