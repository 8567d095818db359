/*
 * log_probe - a C11 host that runs logging actions named on its command line:
 *   debug:TEXT error:TEXT print:TEXT   one message of that kind
 *   long                               an error of 2000 'x' characters
 *   setdebug:N setlevel:N              HalvSetDebug / HalvSetDebugLevel
 *   callback                           route messages to a callback that
 *                                      prints "CB<kind>:<text>|" to stdout
 *   isdebug                            prints "debug=<on> level=<n>" to stdout
 *   errorresult                        prints HalvError's result for a null format
 *   abort:TEXT                         HalvAbort with the text
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "dpk_hvsup.h"

static void Callback(const char *text, int kind, intptr_t user) {
    printf("CB%d:%s|%ld\n", kind, text, (long)user);
    fflush(stdout);
}

int main(int argc, char **argv) {
    for (int i = 1; i < argc; ++i) {
        const char *action = argv[i];
        const char *colon = strchr(action, ':');
        const char *value = colon ? colon + 1 : "";
        if (strncmp(action, "debug:", 6) == 0)
            HalvDebug("%s", value);
        else if (strncmp(action, "error:", 6) == 0)
            HalvError("%s", value);
        else if (strncmp(action, "print:", 6) == 0)
            HalvPrintf("%s", value);
        else if (strcmp(action, "long") == 0) {
            char text[2001];
            memset(text, 'x', 2000);
            text[2000] = '\0';
            HalvError("%s", text);
        } else if (strncmp(action, "setdebug:", 9) == 0)
            HalvSetDebug(atoi(value));
        else if (strncmp(action, "setlevel:", 9) == 0)
            HalvSetDebugLevel(atoi(value));
        else if (strcmp(action, "callback") == 0)
            HalvSetLoggingCallback(Callback, 42);
        else if (strcmp(action, "isdebug") == 0)
            printf("debug=%d level=%d\n", HalvIsDebug(), HalvGetDebugLevel());
        else if (strncmp(action, "abort:", 6) == 0)
            HalvAbort("%s", value);
        else if (strcmp(action, "errorresult") == 0)
            printf("result=%d\n", HalvError(NULL));
        else {
            fprintf(stderr, "log_probe: unknown action %s\n", action);
            return 2;
        }
        fflush(stdout);
    }
    return 0;
}
