/*
 * halvern - the command-line host of the Halvern engine.
 *
 * It uses the public interface only, as any host would: start the engine
 * (which reads hvregistry.dot and opens the bundles it names), find the
 * functions, read stored images through their header managers, drive a
 * function's state through the chunks, write the result, stop the engine.
 */
#define _POSIX_C_SOURCE 200809L
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "host.h"

int Complain(const char *format, ...) {
    va_list args;
    va_start(args, format);
    flockfile(stderr);
    fputs("halvern: ", stderr);
    vfprintf(stderr, format, args);
    fputc('\n', stderr);
    funlockfile(stderr);
    va_end(args);
    return kExitFailed;
}

static const char kUsage[] =
    "usage: halvern COMMAND [ARGUMENTS]\n"
    "\n"
    "  demo [--keep]                  make a sample image and run every function over it,\n"
    "                                 then make a few spectra and show them\n"
    "  list [--failed | --exists NAME]\n"
    "                                 every processing function of every registered bundle,\n"
    "                                 then every bundle that failed to load and why;\n"
    "                                 --failed: only those; --exists: exit 0 if NAME is there\n"
    "  status                         the registry file, data path, temporary directory and\n"
    "                                 every bundle with its state, version and file\n"
    "  describe NAME                  one function's full description\n"
    "  info FILE                      the header of a stored image, a spectrum, an info\n"
    "                                 table or a header block\n"
    "  run [--binary] NAME INPUT OUTPUT [key=value ...]\n"
    "                                 run a function over an image (halvern describe NAME\n"
    "                                 shows the keys it takes; bits comes from the image;\n"
    "                                 --binary starts it from flat arguments and header);\n"
    "                                 a pixel stream with useStdin: true in its header\n"
    "                                 reads its pixels from standard input\n"
    "  run NAME INPUT... --out DIR [--jobs N] [key=value ...]\n"
    "                                 run a function over many images at once, N at a time\n"
    "                                 (default: one per processor), each into DIR under its\n"
    "                                 own name; a failed image is named and the rest go on\n"
    "  pack IMAGE OUTPUT.bh [--byte-order big|little]\n"
    "                                 the image's header as one flat block\n"
    "  convert INPUT OUTPUT --format internal|image-ext|pixr|pixelstream\n"
    "          [--byte-order big|little]\n"
    "                                 store an image in another format or byte order;\n"
    "                                 a pixel stream holds its samples as text\n"
    "  convert SPECTRA OUTPUT --format spectral [--version 1.0-ascii|1.0-binary]\n"
    "                                 store spectra as text or as raw floats (default)\n"
    "  import PICTURE OUTPUT [--format internal|image-ext] [--byte-order big|little]\n"
    "         [--drop-alpha]          a PNG, TIFF (one page), JPEG, PGM or PPM as a stored\n"
    "                                 image: 8 or 16 bits, grey or RGB, alpha as a mask\n"
    "                                 separation unless dropped\n"
    "  export IMAGE OUTPUT.png|.tif|.jpg|.pgm|.ppm [--quality 1-100]\n"
    "                                 write an 8- or 16-bit image of one or three\n"
    "                                 separations (and an alpha) as the picture its name\n"
    "                                 says; JPEG takes 8 bits, no alpha, --quality (90)\n"
    "  export SPECTRA OUTPUT.csv|.svg write spectra as a table (a row a wavelength, a\n"
    "                                 column a measurement) or as a plot\n"
    "  export TABLE OUTPUT.csv        an info table as CSV, one row for each entry\n"
    "  import-table IN.csv FIELDS OUTPUT\n"
    "                                 an info table from CSV; FIELDS such as\n"
    "                                 \"x:1i weight:2f label:8c\" (i integer, f double,\n"
    "                                 c characters; a number of values before the letter)\n"
    "  help                           this text\n"
    "\n"
    "OUTPUT appears only when the command succeeds; Ctrl-C stops a command\n"
    "(every image of a batch) between two chunks and removes the unfinished\n"
    "OUTPUT.  Exit status: 0 done, 1 failed (the reason is on standard error;\n"
    "in a batch, any image), 2 wrong command line, 130 interrupted.\n";

static int CommandHelp(int argc, char **argv) {
    (void)argc;
    (void)argv;
    fputs(kUsage, stdout);
    return kExitOk;
}

/* What a command needs of the engine: nothing, a started engine, or a
 * start whatever its outcome (status reports on a failed start too). */
enum EngineUse { kNoEngine, kStartedEngine, kAnyStart };

static const struct Command {
    const char *name;
    int (*run)(int argc, char **argv);
    enum EngineUse engine;
} kCommands[] = {
    {"demo", CommandDemo, kStartedEngine},   {"list", CommandList, kStartedEngine},
    {"describe", CommandDescribe, kStartedEngine}, {"info", CommandInfo, kStartedEngine},
    {"run", CommandRun, kStartedEngine},     {"convert", CommandConvert, kStartedEngine},
    {"export", CommandExport, kStartedEngine}, {"import", CommandImport, kStartedEngine},
    {"status", CommandStatus, kAnyStart},
    {"pack", CommandPack, kStartedEngine},
    {"import-table", CommandImportTable, kStartedEngine},
    {"help", CommandHelp, kNoEngine},        {"--help", CommandHelp, kNoEngine},
};

int main(int argc, char **argv) {
    if (argc < 2) {
        fputs(kUsage, stderr);
        return kExitUsage;
    }
    const struct Command *command = NULL;
    for (size_t i = 0; i < sizeof kCommands / sizeof kCommands[0]; ++i)
        if (strcmp(argv[1], kCommands[i].name) == 0)
            command = &kCommands[i];
    if (command == NULL) {
        Complain("unknown command %s (halvern help lists the commands)", argv[1]);
        return kExitUsage;
    }
    if (command->engine == kNoEngine)
        return command->run(argc - 2, argv + 2);
    int started = StartEngine();
    if (started != kExitOk && command->engine == kStartedEngine) {
        HalvernEnd();
        return started;
    }
    int status = command->run(argc - 2, argv + 2);
    HalvernEnd();
    return started != kExitOk ? started : status;
}
