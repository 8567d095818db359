/*
 * env_probe - runs the environment calls named on its command line, in
 * order, and prints one "key=value" line for each result:
 *
 *   init | end              HalvernInit (registry load off) | HalvernEnd
 *   get NAME                NAME=<value>, or NAME=(null)
 *   set NAME VALUE          HalvSetenv; prints set=<result>
 *   unset NAME              HalvSetenv with a null value
 *   putenv NAME VALUE       changes the real process environment
 *   expand TEXT             expand=<result>, or expand=(null)
 *   exepath                 exepath=<HalvGetExecutablePath()>
 *   chdir DIR               changes the current directory
 *   prefix                  prefix=<the install prefix of this build>
 *
 * Exits with 2 on a command it doesn't know.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "dpk_hvsup.h"

static const char *OrNull(const char *text) { return text != NULL ? text : "(null)"; }

int main(int argc, char **argv) {
    for (int i = 1; i < argc; ++i) {
        const char *command = argv[i];
        const char *a = i + 1 < argc ? argv[i + 1] : NULL;
        const char *b = i + 2 < argc ? argv[i + 2] : NULL;
        if (strcmp(command, "init") == 0) {
            HalvernDisableRegistryLoad(1);
            printf("init=%d\n", HalvernInit());
        } else if (strcmp(command, "end") == 0) {
            printf("end=%d\n", HalvernEnd());
        } else if (strcmp(command, "get") == 0 && a != NULL) {
            printf("%s=%s\n", a, OrNull(HalvGetenv(a)));
            i += 1;
        } else if (strcmp(command, "set") == 0 && b != NULL) {
            printf("set=%d\n", HalvSetenv(a, b));
            i += 2;
        } else if (strcmp(command, "unset") == 0 && a != NULL) {
            printf("unset=%d\n", HalvSetenv(a, NULL));
            i += 1;
        } else if (strcmp(command, "putenv") == 0 && b != NULL) {
            setenv(a, b, 1);
            i += 2;
        } else if (strcmp(command, "expand") == 0 && a != NULL) {
            char *expanded = HalvExpandString(a);
            printf("expand=%s\n", OrNull(expanded));
            halv_internal_free(expanded);
            i += 1;
        } else if (strcmp(command, "exepath") == 0) {
            printf("exepath=%s\n", OrNull(HalvGetExecutablePath()));
        } else if (strcmp(command, "chdir") == 0 && a != NULL) {
            if (chdir(a) != 0)
                return 3;
            i += 1;
        } else if (strcmp(command, "prefix") == 0) {
            printf("prefix=%s\n", HALV_PROBE_PREFIX);
        } else {
            fprintf(stderr, "env_probe: bad command %s\n", command);
            return 2;
        }
        fflush(stdout);
    }
    return 0;
}
