// SPDX-License-Identifier: Apache-2.0
// A unit of work that waits 20 milliseconds, for measuring schedules.
#include <time.h>

int main(void) {
    const struct timespec time = {.tv_sec = 0, .tv_nsec = 20 * 1000 * 1000};
    return nanosleep(&time, NULL);
}
