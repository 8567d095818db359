/*
 * fn_args.c - from key=value texts on the command line to the argument
 * list of an init point.
 *
 * A function declares its arguments as "name:format  explanation" texts.
 * The key finds the declaration, the format letter says how to read the
 * value: i I b B a 32-bit integer (b B also yes/no, true/false, on/off),
 * f F d a double, s S a string, and # before any of these a comma list.
 * Other formats (headers, pointers, windows) can't come from a command line.
 */
#define _POSIX_C_SOURCE 200809L
#include <ctype.h>
#include <errno.h>
#include <limits.h>
#include <math.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include "host.h"

enum { kMaxKey = 64 };

HalvFuncDesc *FindFunction(const char *name) {
    HalvFuncDesc *desc = HalvAllocFuncDesc();
    if (desc == NULL) {
        Complain("no memory");
        return NULL;
    }
    if (HalvFindAndReadFuncDesc(name, desc) != 1) {
        HalvFreeFuncDesc(desc);
        Complain("unknown function %s (halvern list shows the functions there are)", name);
        return NULL;
    }
    return desc;
}

/* The declared key ("factor:d") of a declaration text, into key. */
static int DeclaredKey(const char *declaration, char *key) {
    size_t n = 0;
    while (declaration[n] != '\0' && !isspace((unsigned char)declaration[n]) && n + 1 < kMaxKey)
        ++n;
    memcpy(key, declaration, n);
    key[n] = '\0';
    return strchr(key, ':') != NULL;
}

static int NameMatches(const char *key, const char *name, size_t nameLength) {
    const char *colon = strchr(key, ':');
    return (size_t)(colon - key) == nameLength && strncasecmp(key, name, nameLength) == 0;
}

/* The declaration of name, its key copied into key; 0 when none. */
static int FindDeclaration(const HalvFuncDesc *desc, const char *name, size_t nameLength, char *key) {
    for (uint32_t i = 0; desc->args != NULL && desc->args[i] != NULL; ++i) {
        if (desc->args[i] == HalvArrayEmptySlot())
            continue;
        if (DeclaredKey(desc->args[i], key) && NameMatches(key, name, nameLength))
            return 1;
    }
    return 0;
}

static void *Keep(FnArgs *args, size_t bytes) {
    void *storage = calloc(1, bytes);
    if (storage != NULL)
        args->values[args->valueCount++] = storage;
    return storage;
}

static int ParseSwitch(const char *text, int32_t *value) {
    static const struct {
        const char *word;
        int32_t value;
    } kWords[] = {{"yes", 1}, {"no", 0}, {"true", 1}, {"false", 0}, {"on", 1}, {"off", 0}};
    for (size_t i = 0; i < sizeof kWords / sizeof kWords[0]; ++i)
        if (strcasecmp(text, kWords[i].word) == 0)
            return *value = kWords[i].value, 1;
    return 0;
}

static int ParseInt(const char *text, char letter, int32_t *value) {
    if ((letter == 'b' || letter == 'B') && ParseSwitch(text, value))
        return 1;
    errno = 0;
    char *end = NULL;
    long long number = strtoll(text, &end, 0);
    if (end == text || *end != '\0' || errno != 0 || number < INT32_MIN || number > INT32_MAX)
        return 0;
    *value = (int32_t)number;
    return 1;
}

static int ParseDouble(const char *text, double *value) {
    errno = 0;
    char *end = NULL;
    *value = strtod(text, &end);
    return end != text && *end == '\0' && errno == 0 && isfinite(*value);
}

/* One value word for letter from text: a pointer to new storage, or the
 * text itself for strings.  0 when text doesn't read as one. */
static intptr_t ValueWord(FnArgs *args, char letter, const char *text) {
    if (strchr("iIbB", letter)) {
        int32_t *slot = Keep(args, sizeof *slot);
        return slot != NULL && ParseInt(text, letter, slot) ? (intptr_t)slot : 0;
    }
    if (strchr("fFd", letter)) {
        double *slot = Keep(args, sizeof *slot);
        return slot != NULL && ParseDouble(text, slot) ? (intptr_t)slot : 0;
    }
    return (intptr_t)text;
}

static const char *KindOf(char letter) {
    if (strchr("bB", letter))
        return "an integer or yes/no";
    if (strchr("iI", letter))
        return "an integer";
    return "a number";
}

/* Appends the entry for key with the value text; the text must outlive the
 * list, and is cut at commas for a list format. */
static int AppendEntry(FnArgs *args, uint32_t *used, const char *key, char *value) {
    const char *format = strchr(key, ':') + 1;
    int list = format[0] == '#';
    char letter = list ? format[1] : format[0];
    if (letter == '\0' || !strchr("iIbBfFdsS", letter))
        return Complain("argument %s can't be given as key=value", key);
    char *keyCopy = Keep(args, strlen(key) + 1);
    if (keyCopy == NULL)
        return Complain("no memory");
    strcpy(keyCopy, key);
    args->words[(*used)++] = (intptr_t)keyCopy;
    char *cursor = value;
    do {
        char *piece = cursor;
        cursor = list ? strchr(cursor, ',') : NULL;
        if (cursor != NULL)
            *cursor++ = '\0';
        intptr_t word = ValueWord(args, letter, piece);
        if (word == 0)
            return Complain("%.*s=%s: not %s", (int)(strchr(key, ':') - key), key, piece, KindOf(letter));
        args->words[(*used)++] = word;
    } while (cursor != NULL);
    args->words[(*used)++] = HALV_ARG_NULL;
    if (list)
        args->words[(*used)++] = HALV_ARG_NULL;
    return kExitOk;
}

static const char *FindPair(char *const *pairs, int count, const char *name, size_t nameLength) {
    for (int i = 0; i < count; ++i)
        if (strncasecmp(pairs[i], name, nameLength) == 0 && pairs[i][nameLength] == '=')
            return pairs[i] + nameLength + 1;
    return NULL;
}

static int CheckPairs(const HalvFuncDesc *desc, char *const *pairs, int count, int lenient) {
    char key[kMaxKey];
    for (int i = 0; i < count; ++i) {
        const char *equals = strchr(pairs[i], '=');
        if (equals == NULL || equals == pairs[i])
            return Complain("argument %s: expected key=value", pairs[i]);
        size_t nameLength = (size_t)(equals - pairs[i]);
        if (!lenient && !FindDeclaration(desc, pairs[i], nameLength, key))
            return Complain("%s has no argument %.*s (halvern describe %s shows its arguments)", desc->name,
                            (int)nameLength, pairs[i], desc->name);
        for (int j = 0; j < i; ++j)
            if (strncasecmp(pairs[j], pairs[i], nameLength + 1) == 0)
                return Complain("argument %.*s is given twice", (int)nameLength, pairs[i]);
    }
    return kExitOk;
}

/* The user's value and the host's must agree for a fact of the image. */
static int CheckFacts(char *const *pairs, int count, char *const *facts, int factCount) {
    for (int f = 0; f < factCount; ++f) {
        size_t nameLength = (size_t)(strchr(facts[f], '=') - facts[f]);
        const char *given = FindPair(pairs, count, facts[f], nameLength);
        const char *known = facts[f] + nameLength + 1;
        if (given != NULL && strcmp(given, known) != 0)
            return Complain("%.*s=%s doesn't match the image, whose %.*s is %s", (int)nameLength, facts[f], given,
                            (int)nameLength, facts[f], known);
    }
    return kExitOk;
}

int BuildFnArgs(FnArgs *args, const HalvFuncDesc *desc, char *const *pairs, int pairCount, char *const *facts,
                int factCount, int lenient) {
    memset(args, 0, sizeof *args);
    if (CheckPairs(desc, pairs, pairCount, lenient) != kExitOk || CheckFacts(pairs, pairCount, facts, factCount))
        return kExitFailed;
    /* Every comma may start a value: a bound on the words of all entries. */
    size_t words = 1, values = 1;
    for (int i = 0; i < pairCount; ++i) {
        words += 4 + strlen(pairs[i]);
        values += 2 + strlen(pairs[i]);
    }
    for (int i = 0; i < factCount; ++i) {
        words += 4 + strlen(facts[i]);
        values += 2 + strlen(facts[i]);
    }
    args->words = calloc(words, sizeof *args->words);
    args->values = calloc(values, sizeof *args->values);
    if (args->words == NULL || args->values == NULL)
        return FreeFnArgs(args), Complain("no memory");
    uint32_t used = 0;
    char key[kMaxKey];
    char *const *sources[2] = {facts, pairs};
    int counts[2] = {factCount, pairCount};
    for (int s = 0; s < 2; ++s)
        for (int i = 0; i < counts[s]; ++i) {
            const char *text = sources[s][i];
            size_t nameLength = (size_t)(strchr(text, '=') - text);
            if (!FindDeclaration(desc, text, nameLength, key))
                continue; /* a fact the function doesn't take, or a lenient extra */
            if (s == 1 && FindPair(facts, factCount, text, nameLength) != NULL)
                continue; /* already there, and checked to agree */
            char *value = Keep(args, strlen(text) + 1);
            if (value == NULL)
                return FreeFnArgs(args), Complain("no memory");
            strcpy(value, text + nameLength + 1);
            if (AppendEntry(args, &used, key, value) != kExitOk)
                return FreeFnArgs(args), kExitFailed;
        }
    args->words[used] = HALV_ARG_END;
    return kExitOk;
}

void FreeFnArgs(FnArgs *args) {
    for (uint32_t i = 0; i < args->valueCount; ++i)
        free(args->values[i]);
    free(args->values);
    free(args->words);
    memset(args, 0, sizeof *args);
}

/* The value words of the entry at words, up to its null; their count. */
static uint32_t ValueCount(const intptr_t *words) {
    uint32_t n = 0;
    while (words[n] != HALV_ARG_NULL)
        ++n;
    return n;
}

int BinaryFnArgs(const FnArgs *args, FnBinArgs *out) {
    memset(out, 0, sizeof *out);
    uint32_t entries = 0;
    for (const intptr_t *w = args->words; *w != HALV_ARG_END; ++w)
        entries += w == args->words || w[-1] == HALV_ARG_NULL ? (*w != HALV_ARG_NULL) : 0;
    out->args = calloc(entries + 1, sizeof *out->args);
    out->storage = calloc(entries + 1, sizeof *out->storage);
    if (out->args == NULL || out->storage == NULL)
        return FreeBinaryFnArgs(out), Complain("no memory");
    for (const intptr_t *w = args->words; *w != HALV_ARG_END;) {
        if (*w == HALV_ARG_NULL) { /* the second null of a list entry */
            ++w;
            continue;
        }
        const char *key = (const char *)*w++;
        const char *format = strchr(key, ':') + 1;
        char letter = format[0] == '#' ? format[1] : format[0];
        uint32_t n = ValueCount(w);
        HalvBinArg *arg = &out->args[out->count++];
        arg->key = key;
        arg->count = (int32_t)n;
        /* integers and doubles as the contiguous arrays the records hold,
         * strings as the array of their pointers */
        size_t width = strchr("iIbB", letter) ? sizeof(int32_t) : strchr("fFd", letter) ? sizeof(double)
                                                                                          : sizeof(char *);
        arg->type = width == sizeof(int32_t) ? 0 : strchr("fFd", letter) ? 3 : 1;
        unsigned char *values = calloc(n + 1, width);
        if (values == NULL)
            return FreeBinaryFnArgs(out), Complain("no memory");
        out->storage[out->storageCount++] = values;
        for (uint32_t i = 0; i < n; ++i)
            memcpy(values + i * width, arg->type == 1 ? (const void *)&w[i] : (const void *)w[i], width);
        arg->data = values;
        w += n + 1;
    }
    return kExitOk;
}

void FreeBinaryFnArgs(FnBinArgs *binary) {
    for (uint32_t i = 0; binary->storage != NULL && i < binary->storageCount; ++i)
        free(binary->storage[i]);
    free(binary->storage);
    free(binary->args);
    memset(binary, 0, sizeof *binary);
}
