/*
 * halvern - the command-line host of the Halvern engine.
 *
 * It uses the public interface only, as any host would: start the engine
 * (which reads hvregistry.dot and opens the bundles it names), find the
 * functions, read stored images through their header managers, drive a
 * function's state through the chunks, write the result, stop the engine.
 */
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "host.h"

int Complain(const char *format, ...) {
    va_list args;
    va_start(args, format);
    fputs("halvern: ", stderr);
    vfprintf(stderr, format, args);
    fputc('\n', stderr);
    va_end(args);
    return kExitFailed;
}

static const char kUsage[] =
    "usage: halvern COMMAND [ARGUMENTS]\n"
    "\n"
    "  demo [--keep]                  make a sample image and run every function over it\n"
    "  list                           every processing function of every registered bundle\n"
    "  describe NAME                  one function's full description\n"
    "  info FILE                      the header of a stored image\n"
    "  run NAME INPUT OUTPUT [key=value ...]\n"
    "                                 run a function over an image (halvern describe NAME\n"
    "                                 shows the keys it takes; bits comes from the image)\n"
    "  convert INPUT OUTPUT --format internal|image-ext [--byte-order big|little]\n"
    "                                 store an image in another format or byte order\n"
    "  export INPUT OUTPUT.pgm|.ppm   write an 8- or 16-bit image of one or three\n"
    "                                 separations as binary netpbm\n"
    "  help                           this text\n"
    "\n"
    "OUTPUT appears only when the command succeeds.  Exit status: 0 done,\n"
    "1 failed (the reason is on standard error), 2 wrong command line.\n";

static int CommandHelp(int argc, char **argv) {
    (void)argc;
    (void)argv;
    fputs(kUsage, stdout);
    return kExitOk;
}

static const struct {
    const char *name;
    int (*run)(int argc, char **argv);
} kCommands[] = {
    {"demo", CommandDemo},       {"list", CommandList},     {"describe", CommandDescribe},
    {"info", CommandInfo},       {"run", CommandRun},       {"convert", CommandConvert},
    {"export", CommandExport},   {"help", CommandHelp},     {"--help", CommandHelp},
};

int main(int argc, char **argv) {
    if (argc < 2) {
        fputs(kUsage, stderr);
        return kExitUsage;
    }
    int (*command)(int, char **) = NULL;
    for (size_t i = 0; i < sizeof kCommands / sizeof kCommands[0]; ++i)
        if (strcmp(argv[1], kCommands[i].name) == 0)
            command = kCommands[i].run;
    if (command == NULL) {
        Complain("unknown command %s (halvern help lists the commands)", argv[1]);
        return kExitUsage;
    }
    if (HalvernInit() != 1) {
        HalvernEnd();
        return Complain("the engine did not start");
    }
    int status = command(argc - 2, argv + 2);
    HalvernEnd();
    return status;
}
