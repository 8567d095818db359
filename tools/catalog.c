/*
 * catalog.c - list and describe: what the registered bundles offer.
 */
#include <stdio.h>

#include "host.h"

static void PrintList(const char *label, char **items) {
    if (items == NULL)
        return;
    for (uint32_t i = 0; items[i] != NULL; ++i)
        if (items[i] != HalvArrayEmptySlot())
            printf("  %-12s %s\n", i == 0 ? label : "", items[i]);
}

int CommandList(int argc, char **argv) {
    (void)argv;
    if (argc != 0)
        return Complain("usage: halvern list"), kExitUsage;
    HalvFuncDesc **descs = NULL;
    if (HalvFindAllFuncDesc(&descs) != 1 || descs == NULL || descs[0] == NULL) {
        HalvFreeSmartArray(descs);
        return Complain("no processing functions are registered (is hvregistry.dot beside halvern?)");
    }
    for (uint32_t i = 0; descs[i] != NULL; ++i)
        printf("%-12s %s\n", descs[i]->name, descs[i]->description ? descs[i]->description : "");
    HalvFreeSmartArray(descs);
    return kExitOk;
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
