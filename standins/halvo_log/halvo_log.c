/* Stand-in for the platform's security event-log library, libhalvo_log.so.0.
 *
 * With HALVO_LOG_FILE set, every call appends one JSON object on one line to that file; without
 * it, the same line goes to syslog (authpriv). Each line leaves in a single write(2) on a
 * descriptor opened with O_APPEND, so lines from several threads and processes never interleave.
 * Each line ends with a "monotonic" field the caller does not send: when the call was made. */
#define _GNU_SOURCE
#include "halvolog.h"

#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#define HALVO_EXPORT __attribute__((visibility("default")))

struct buffer
{
    char *data;
    size_t size;
    size_t capacity;
    int failed;
};

static void append(struct buffer *b, const char *text, size_t length)
{
    if (b->failed)
        return;
    if (b->size + length + 1 > b->capacity) {
        size_t capacity = b->capacity ? b->capacity : 256;
        while (capacity < b->size + length + 1)
            capacity *= 2;
        char *data = realloc(b->data, capacity);
        if (!data) {
            b->failed = 1;
            return;
        }
        b->data = data;
        b->capacity = capacity;
    }
    memcpy(b->data + b->size, text, length);
    b->size += length;
    b->data[b->size] = '\0';
}

static void append_text(struct buffer *b, const char *text)
{
    append(b, text, strlen(text));
}

/* Length of the valid UTF-8 sequence at s (at most n bytes), or 0 if it is not valid. */
static size_t utf8_sequence(const unsigned char *s, size_t n)
{
    size_t length;
    unsigned int code;
    if (s[0] < 0x80)
        return 1;
    if (s[0] >= 0xC2 && s[0] <= 0xDF) {
        length = 2;
        code = s[0] & 0x1F;
    } else if (s[0] >= 0xE0 && s[0] <= 0xEF) {
        length = 3;
        code = s[0] & 0x0F;
    } else if (s[0] >= 0xF0 && s[0] <= 0xF4) {
        length = 4;
        code = s[0] & 0x07;
    } else {
        return 0;
    }
    if (n < length)
        return 0;
    for (size_t i = 1; i < length; ++i) {
        if ((s[i] & 0xC0) != 0x80)
            return 0;
        code = (code << 6) | (s[i] & 0x3F);
    }
    if ((length == 3 && (code < 0x800 || (code >= 0xD800 && code <= 0xDFFF))) ||
        (length == 4 && (code < 0x10000 || code > 0x10FFFF)))
        return 0;
    return length;
}

/* Quotes, backslashes and every control character are escaped, so no text can end the line;
 * valid UTF-8 passes unchanged and an invalid byte becomes U+FFFD. */
static void append_json_string(struct buffer *b, const char *text)
{
    static const char hex[] = "0123456789abcdef";
    const unsigned char *s = (const unsigned char *)(text ? text : "");
    size_t n = strlen((const char *)s);
    append(b, "\"", 1);
    while (n > 0) {
        unsigned char c = *s;
        if (c == '"' || c == '\\') {
            char escaped[2] = {'\\', (char)c};
            append(b, escaped, 2);
        } else if (c == '\n') {
            append(b, "\\n", 2);
        } else if (c == '\r') {
            append(b, "\\r", 2);
        } else if (c == '\t') {
            append(b, "\\t", 2);
        } else if (c < 0x20 || c == 0x7F) {
            char escaped[6] = {'\\', 'u', '0', '0', hex[c >> 4], hex[c & 0xF]};
            append(b, escaped, 6);
        } else {
            size_t length = utf8_sequence(s, n);
            if (length == 0) {
                append(b, "\\ufffd", 6);
                length = 1;
            } else {
                append(b, (const char *)s, length);
            }
            s += length;
            n -= length;
            continue;
        }
        ++s;
        --n;
    }
    append(b, "\"", 1);
}

static void append_int(struct buffer *b, int value)
{
    char digits[16];
    char *end = digits + sizeof digits;
    char *p = end;
    unsigned int magnitude = value < 0 ? 0u - (unsigned int)value : (unsigned int)value;
    do {
        *--p = (char)('0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude);
    if (value < 0)
        *--p = '-';
    append(b, p, (size_t)(end - p));
}

static void emit_line(const struct buffer *b)
{
    const char *path = getenv("HALVO_LOG_FILE");
    if (!path || !*path) {
        syslog(LOG_AUTHPRIV | LOG_INFO, "%s", b->data);
        return;
    }
    int fd = open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0)
        return;
    const char *p = b->data;
    size_t left = b->size;
    while (left > 0) {
        ssize_t written = write(fd, p, left);
        if (written < 0) {
            if (errno == EINTR)
                continue;
            break;
        }
        p += written;
        left -= (size_t)written;
    }
    close(fd);
}

static int log_event(int has_level, int level, int type, const char *module, const char *operation,
                     const char *result)
{
    struct buffer b = {NULL, 0, 0, 0};
    append_text(&b, has_level ? "{\"entry\":\"halvo_log_v2\",\"level\":" : "{\"entry\":\"halvo_log\"");
    if (has_level)
        append_int(&b, level);
    append_text(&b, ",\"type\":");
    append_int(&b, type);
    append_text(&b, ",\"module\":");
    append_json_string(&b, module);
    append_text(&b, ",\"operation\":");
    append_json_string(&b, operation);
    append_text(&b, ",\"result\":");
    append_json_string(&b, result);
    /* Not part of the call: the system-wide monotonic clock when it was made, so that a transcript
     * can put each event among the lines of the other processes in the order things happened. */
    struct timespec now = {0, 0};
    char stamp[48];
    clock_gettime(CLOCK_MONOTONIC, &now);
    snprintf(stamp, sizeof stamp, ",\"monotonic\":%ld.%06ld}\n", (long)now.tv_sec, now.tv_nsec / 1000);
    append_text(&b, stamp);
    if (!b.failed)
        emit_line(&b);
    free(b.data);
    return b.failed ? -1 : 0;
}

HALVO_EXPORT int halvo_log(int type, const char *module, const char *operation, const char *result, ...)
{
    return log_event(0, 0, type, module, operation, result);
}

HALVO_EXPORT int halvo_log_v2(int level, int type, const char *module, const char *operation,
                              const char *result, ...)
{
    return log_event(1, level, type, module, operation, result);
}
