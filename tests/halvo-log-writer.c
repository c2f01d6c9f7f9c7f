/* Writes COUNT events through libhalvo_log, tagged with TAG and a sequence number, so a test can
 * check that lines from another process are neither lost nor torn. */
#include "halvolog.h"

#include <stdio.h>
#include <stdlib.h>

int main(int argc, char **argv)
{
    if (argc != 3) {
        fprintf(stderr, "usage: %s COUNT TAG\n", argv[0]);
        return 2;
    }
    const int count = atoi(argv[1]);
    char operation[64];
    for (int i = 0; i < count; ++i) {
        snprintf(operation, sizeof operation, "%s %d", argv[2], i);
        halvo_log_v2(3, 13, "virus scan", operation, "a result long enough to make tearing visible");
    }
    return 0;
}
