/* Preloaded into lumd by the tests: the seconds that the library sleeps between polling cycles are
 * as long as LUM_TEST_SECOND_MS says, and it sleeps on for as long as the file of LUM_TEST_HOLD is
 * there. Everything else keeps the real time. */
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

static void nap(long milliseconds) {
  const struct timespec time = {milliseconds / 1000, milliseconds % 1000 * 1000000};
  nanosleep(&time, NULL);
}

unsigned sleep(unsigned seconds) {
  const char *length = getenv("LUM_TEST_SECOND_MS");
  const char *hold = getenv("LUM_TEST_HOLD");
  nap((long)seconds * (length == NULL ? 1000 : atol(length)));
  while (hold != NULL && access(hold, F_OK) == 0) nap(10);
  return 0;
}
