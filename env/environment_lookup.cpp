/*
 * env/environment_lookup.cpp - HalvGetenv and its tables.
 *
 * A lookup walks five layers and stops at the first that answers:
 *
 *   1. the override list (HalvSetenv, and every value read before);
 *   2. older names that win, then the name itself, from the real
 *      environment; what is found there joins the override list, so the
 *      process environment is read once per name;
 *   3. alternative names, looked up with all their layers;
 *   4. the release directory (HV_RELEASE only), then built-in defaults;
 *   5. last resorts for HOME, TEMP and PWD.
 *
 * Everything runs under the ENVV lock, which is recursive: an alternative
 * looks itself up through HalvGetenv while the lock is held.
 */
#include <cstdlib>
#include <cstring>

#include "core/internal.h"
#include "env/environment_internal.h"

#ifndef HALV_BUILD_PREFIX
#define HALV_BUILD_PREFIX "/usr/local"
#endif

namespace {

struct NamePair {
    const char *name;
    const char *other;
};

/* Older names: set in the real environment, they win over the name. */
constexpr NamePair kOlderNames[] = {
    {"HVTOP", "KOVTOP"},
    {"HV_RELEASE", "KOVTOP"},
    {"HV_DATA_PATH", "KOV_DATA_PATH"},
    {"HALV_TEMP", "KOV_TEMP"},
};

/* Alternatives: asked when the name is found nowhere. */
constexpr NamePair kAlternatives[] = {
    {"KOV_RELEASE", "HV_RELEASE"},
    {"KOVTOP", "HV_RELEASE"},
    {"HALV_TEMP", "TEMP"},
    {"USER", "LOGNAME"},
};

/* Built-in defaults.  "" is a value, not a missing one. */
constexpr NamePair kDefaults[] = {
    {"HVTOP", HALV_BUILD_PREFIX},
    {"HV_RELEASE", HALV_BUILD_PREFIX},
    {"HV_OS", ""},
    {"HV_DATA_PATH", ".,${HOME},${HOME}/data,${KOVTOP}/data"},
    {"HV_VERS", "3.8.0"},
    {"HALV_TEMP", "/tmp"},
    {"HV_ROTATE_BUFFERSIZE", "4096"},
    {"HV_CHUNKBUFFER_CAP", ""},
    {"HALV_MEMORY_MAX", "15360"},
    {"HALV_TEMPFILE_MAX", "10240"},
    {"HV_COLORPREFS_TODEVICERGB", "sRGB"},
    {"HV_COLORPREFS_TODEVICEGRAY", "sGray"},
    {"HV_COLORPREFS_TODEVICECMYK", "cmykLinear"},
    {"HV_COLORPREFS_FROMDEVICERGB", "sRGB"},
    {"HV_COLORPREFS_FROMDEVICEGRAY", "sGray"},
    {"HV_COLORPREFS_FROMDEVICECMYK", "cmykLinear"},
};

bool SameName(const char *a, const char *b) noexcept { return std::strcmp(a, b) == 0; }

/* A copy of the real environment's value, or null when the variable is
 * unset or empty (an empty variable counts as a missing one). */
char *ReadRealEnvironment(const char *name) noexcept {
    const char *value = std::getenv(name);
    if (value == nullptr || *value == '\0')
        return nullptr;
    return halv::CopyEnvText(value);
}

/* The value of the first older name of name that is set, or null. */
char *ReadOlderName(const char *name) noexcept {
    for (const NamePair &row : kOlderNames) {
        if (!SameName(row.name, name))
            continue;
        if (char *value = ReadRealEnvironment(row.other)) {
            if (halv::EngineEnvDebug())
                HalvDebug("HalvGetenv: Overriding %s with %s\n", name, row.other);
            return value;
        }
    }
    return nullptr;
}

const char *LookupAlternative(const char *name) noexcept {
    for (const NamePair &row : kAlternatives) {
        if (!SameName(row.name, name))
            continue;
        if (const char *value = HalvGetenv(row.other)) {
            if (halv::EngineEnvDebug())
                HalvDebug("HalvGetenv: didn't find %s, using %s\n", name, row.other);
            return value;
        }
    }
    return nullptr;
}

const char *LookupDefault(const char *name) noexcept {
    for (const NamePair &row : kDefaults) {
        if (!SameName(row.name, name))
            continue;
        if (halv::EngineEnvDebug())
            HalvDebug("HalvGetenv: didn't find %s, defaulting to %s\n", name, row.other);
        return row.other;
    }
    return nullptr;
}

} // namespace

extern "C" {

HALV_API const char *HalvGetenv(const char *name) noexcept {
    if (name == nullptr)
        return nullptr;
    halv::EnvLock lock;
    if (HalvEnvVar *node = halv::FindEnvVar(name))
        return node->value;

    char *found = ReadOlderName(name);
    if (found == nullptr)
        found = ReadRealEnvironment(name);
    if (found != nullptr)
        return halv::StoreEnvVar(name, found, true) ? found : nullptr;

    if (const char *value = LookupAlternative(name))
        return value;
    if (SameName(name, "HV_RELEASE")) {
        if (const char *release = halv::ReleaseDirectory())
            return release;
    }
    if (const char *value = LookupDefault(name))
        return value;
    return halv::LastResort(name);
}

} // extern "C"
