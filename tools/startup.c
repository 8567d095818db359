/*
 * startup.c - starting the engine, and saying what the start did.
 *
 * The library keeps an account of its registry step (which registry file,
 * which bundles, why one failed) whatever its debug switches; the host
 * turns it into lines a user can act on: on a failed start, in the failed
 * part of "list", and in "status".
 */
#define _POSIX_C_SOURCE 200809L
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "host.h"

static const char *OptionalWord(const HalvBundleReport *bundle) {
    return bundle->optional ? "optional" : "required";
}

/* The registry file line(s), for a failed start and for status. */
static void DescribeRegistry(FILE *to, const char *prefix, const HalvRegistryReport *report) {
    if (report->state == HALV_REGISTRY_DEFAULT) {
        fprintf(to, "%sregistry file: none found along HV_DATA_PATH; the default bundle halv was tried\n", prefix);
        return;
    }
    fprintf(to, "%sregistry file: %s%s\n", prefix, report->path ? report->path : "?",
            report->state == HALV_REGISTRY_UNREADABLE ? " (not readable)" : "");
}

/* Each problem line of the registry file, prefixed. */
static void DescribeProblems(FILE *to, const char *prefix, const HalvRegistryReport *report) {
    for (const char *line = report->problems; line != NULL && *line != '\0';) {
        const char *end = strchr(line, '\n');
        int length = end != NULL ? (int)(end - line) : (int)strlen(line);
        fprintf(to, "%sregistry file: %.*s\n", prefix, length, line);
        line += length + (end != NULL);
    }
}

int StartEngine(void) {
    if (HalvernInit() == 1)
        return kExitOk;
    Complain("the engine did not start");
    HalvRegistryReport *report = HalvGetRegistryReport();
    if (report != NULL) {
        DescribeRegistry(stderr, "halvern: ", report);
        if (report->state == HALV_REGISTRY_UNREADABLE)
            DescribeProblems(stderr, "halvern: ", report);
        for (uint32_t i = 0; i < report->bundleCount; ++i) {
            const HalvBundleReport *bundle = &report->bundles[i];
            if (!bundle->loaded && !bundle->optional)
                Complain("bundle %s (required): %s", bundle->name, bundle->reason);
        }
        halv_internal_free(report);
    }
    return kExitFailed;
}

int PrintFailedBundles(const char *prefix) {
    HalvRegistryReport *report = HalvGetRegistryReport();
    int failed = 0;
    for (uint32_t i = 0; report != NULL && i < report->bundleCount; ++i) {
        const HalvBundleReport *bundle = &report->bundles[i];
        if (!bundle->loaded)
            printf("%s%s (%s): %s\n", prefix, bundle->name, OptionalWord(bundle), bundle->reason);
        failed += !bundle->loaded;
    }
    halv_internal_free(report);
    return failed;
}

/* The directory HalvMktemp chooses, found by making (and removing) a file
 * there: the checks it makes decide, not the variables alone. */
static void PrintTempDir(void) {
    char *probe = HalvMktemp("status");
    if (probe == NULL) {
        printf("temporary dir  none usable\n");
        return;
    }
    unlink(probe);
    char *slash = strrchr(probe, '/');
    if (slash != NULL)
        *slash = '\0';
    printf("temporary dir  %s\n", slash == probe ? "/" : slash != NULL ? probe : ".");
    halv_internal_free(probe);
}

int CommandStatus(int argc, char **argv) {
    (void)argv;
    if (argc != 0)
        return Complain("usage: halvern status"), kExitUsage;
    HalvRegistryReport *report = HalvGetRegistryReport();
    if (report == NULL)
        printf("registry file: not read\n");
    else {
        DescribeRegistry(stdout, "", report);
        DescribeProblems(stdout, "  ", report);
    }
    const char *dataPath = HalvGetenv("HV_DATA_PATH");
    char *expanded = dataPath != NULL ? HalvExpandString(dataPath) : NULL;
    printf("data path      %s\n", expanded != NULL ? expanded : dataPath != NULL ? dataPath : "");
    halv_internal_free(expanded);
    PrintTempDir();
    for (uint32_t i = 0; report != NULL && i < report->bundleCount; ++i) {
        const HalvBundleReport *bundle = &report->bundles[i];
        if (bundle->loaded)
            printf("bundle %-8s loaded, version %s (%s), %s\n", bundle->name,
                   bundle->version ? bundle->version : "unknown", bundle->timestamp ? bundle->timestamp : "no timestamp",
                   bundle->path ? bundle->path : "?");
        else
            printf("bundle %-8s failed (%s): %s\n", bundle->name, OptionalWord(bundle), bundle->reason);
    }
    halv_internal_free(report);
    return kExitOk;
}
