/*
 * catalog.c - list and describe: what the registered bundles offer.
 */
#include <stdio.h>
#include <string.h>
#include <string.h>

#include "host.h"

static void PrintList(const char *label, char **items) {
    if (items == NULL)
        return;
    for (uint32_t i = 0; items[i] != NULL; ++i)
        if (items[i] != HalvArrayEmptySlot())
            printf("  %-12s %s\n", i == 0 ? label : "", items[i]);
}

/* list --exists NAME: quiet, for scripts. */
static int FunctionExists(const char *name) {
    HalvFuncDesc *desc = HalvAllocFuncDesc();
    int found = desc != NULL && HalvFindAndReadFuncDesc(name, desc) == 1;
    HalvFreeFuncDesc(desc);
    return found ? kExitOk : kExitFailed;
}

int CommandList(int argc, char **argv) {
    if (argc == 2 && strcmp(argv[0], "--exists") == 0)
        return FunctionExists(argv[1]);
    int onlyFailed = argc == 1 && strcmp(argv[0], "--failed") == 0;
    if (argc != 0 && !onlyFailed)
        return Complain("usage: halvern list [--failed | --exists NAME]"), kExitUsage;
    if (onlyFailed) {
        PrintFailedBundles("");
        return kExitOk;
    }
    HalvFuncDesc **descs = NULL;
    int listed = HalvFindAllFuncDesc(&descs) == 1 && descs != NULL && descs[0] != NULL;
    for (uint32_t i = 0; listed && descs[i] != NULL; ++i)
        printf("%-12s %s\n", descs[i]->name, descs[i]->description ? descs[i]->description : "");
    HalvFreeSmartArray(descs);
    HalvRegistryReport *report = HalvGetRegistryReport();
    int anyFailed = 0;
    for (uint32_t i = 0; report != NULL && i < report->bundleCount; ++i)
        anyFailed |= !report->bundles[i].loaded;
    halv_internal_free(report);
    if (anyFailed) {
        printf("%sbundles that failed to load:\n", listed ? "\n" : "");
        PrintFailedBundles("  ");
    }
    return listed ? kExitOk : Complain("no processing functions are registered (halvern status tells why)");
}

int CommandDescribe(int argc, char **argv) {
    if (argc != 1)
        return Complain("usage: halvern describe NAME"), kExitUsage;
    HalvFuncDesc *desc = FindFunction(argv[0]);
    if (desc == NULL)
        return kExitFailed;
    printf("%s: %s\n", desc->name, desc->description ? desc->description : "");
    printf("  inputs %d, outputs %d\n", desc->inputs, desc->outputs);
    PrintList("arguments", desc->args);
    PrintList("formats", desc->formats);
    PrintList("categories", desc->categories);
    PrintList("tests", desc->tests);
    if (desc->documentation)
        printf("\n%s\n", desc->documentation);
    HalvFreeFuncDesc(desc);
    return kExitOk;
}
