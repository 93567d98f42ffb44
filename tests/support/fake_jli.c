#define _POSIX_C_SOURCE 200809L
/* A stand-in for the runtime's launcher library. JLI_Launch writes the two version texts
 * and every entry of the argument vector, one per line, to the file named by
 * FAKE_JLI_RECORD (appending), sleeps FAKE_JLI_SLEEP_MS milliseconds, and returns
 * FAKE_JLI_STATUS (default 0). FAKE_JLI_SHOW_VARIABLE names a variable whose value it records too. Its @file expansion
 * replaces "@name" by the lines of that file; built with FAKE_JLI_WITHOUT_ARGUMENT_FILES it has none, as the libraries
 * before release 9. */
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>

typedef struct {
  char** elements;
  size_t size;
  size_t capacity;
} JLI_List_;
typedef JLI_List_* JLI_List;

/* What the launcher asked of the argument-file functions; -1 until it calls them. */
static int initHasJavaArgs = -1, initDisableArgFile = -1, preprocessExpandSource = -1;

int JLI_Launch(int argc, char** argv, int jargc, const char** jargv, int appclassc, const char** appclassv,
               const char* fullversion, const char* dotversion, const char* pname, const char* lname,
               unsigned char javaargs, unsigned char cpwildcard, unsigned char javaw, int ergo) {
  (void)jargv;
  (void)appclassv;
  const char* record = getenv("FAKE_JLI_RECORD");
  struct stat input; /* started with standard input closed, the launcher gives the runtime /dev/null */
  int nullInput = fstat(0, &input) == 0 && S_ISCHR(input.st_mode) && (fcntl(0, F_GETFL) & O_ACCMODE) == O_RDONLY;
  if (record) {
    FILE* f = fopen(record, "a");
    if (f) {
      fprintf(f, "fullversion=%s\ndotversion=%s\n", fullversion ? fullversion : "(null)",
              dotversion ? dotversion : "(null)");
      fprintf(f, "flags=%s %s %d %d %d %d %d %d %d %d %d %d\n", pname, lname, jargc, appclassc, javaargs, cpwildcard,
              javaw, ergo, initHasJavaArgs, initDisableArgFile, preprocessExpandSource, nullInput);
      const char* shown = getenv("FAKE_JLI_SHOW_VARIABLE");
      if (shown) fprintf(f, "variable=%s=%s\n", shown, getenv(shown) ? getenv(shown) : "(unset)");
      for (int i = 0; i < argc; ++i) fprintf(f, "%s\n", argv[i]);
      fprintf(f, "--\n");
      fclose(f);
    }
  }
  const char* sleepMs = getenv("FAKE_JLI_SLEEP_MS");
  if (sleepMs) {
    struct timespec pause = {atoi(sleepMs) / 1000, (atoi(sleepMs) % 1000) * 1000000L};
    nanosleep(&pause, NULL);
  }
  const char* status = getenv("FAKE_JLI_STATUS");
  return status ? atoi(status) : 0;
}

void* JLI_MemAlloc(size_t n) { return malloc(n); }
void JLI_MemFree(void* p) { free(p); }
char* JLI_StringDup(const char* s) { return strdup(s); }

JLI_List JLI_List_new(size_t capacity) {
  JLI_List l = (JLI_List)calloc(1, sizeof(JLI_List_));
  l->capacity = capacity ? capacity : 1;
  l->elements = (char**)malloc(l->capacity * sizeof(char*));
  return l;
}

void JLI_List_add(JLI_List l, char* s) {
  if (l->size == l->capacity) {
    l->capacity *= 2;
    l->elements = (char**)realloc(l->elements, l->capacity * sizeof(char*));
  }
  l->elements[l->size++] = s;
}

#ifndef FAKE_JLI_WITHOUT_ARGUMENT_FILES
void JLI_InitArgProcessing(unsigned char hasJavaArgs, unsigned char disableArgFile) {
  initHasJavaArgs = hasJavaArgs;
  initDisableArgFile = disableArgFile;
}

JLI_List JLI_PreprocessArg(const char* arg, unsigned char expandSourceOpt) {
  preprocessExpandSource = expandSourceOpt;
  if (arg[0] != '@') return NULL;
  FILE* f = fopen(arg + 1, "r");
  if (!f) return NULL;
  JLI_List l = JLI_List_new(4);
  char line[4096];
  while (fgets(line, sizeof line, f)) {
    line[strcspn(line, "\r\n")] = 0;
    if (line[0]) JLI_List_add(l, strdup(line));
  }
  fclose(f);
  return l;
}
#endif
