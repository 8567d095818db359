/*
 * modules/registry.cpp - the registry file read by the first HalvernInit,
 * and the bundles it registered.
 *
 * hvregistry.dot is read token by token: a [section] selects what the
 * following "label: value" lines mean, and every other token is passed
 * over, so a malformed file loads what it can.  The boot list, newest
 * first, remembers the registrations to drop at the last HalvernEnd; it
 * changes only under the master lock, which both steps run under.
 */
#include <cerrno>
#include <cstring>

#include "halv_env.h"
#include "halv_userdata.h"
#include "halv_util.h"
#include "modules/internal.h"

namespace {

constexpr uint32_t kKeySize = 512;
constexpr uint32_t kValueSize = 2048;
constexpr char kDefaultBundle[] = "halv";

enum class Section { None, Libraries, Variables };

constinit HalvBootLibrary *bootLibraries = nullptr;

/* Registers one bundle named by the registry, noting the outcome in the
 * registry report.  1, or 0 when start-up must fail: no memory, or a
 * required bundle that didn't register. */
int RegisterBootLibrary(const char *name, bool optional) noexcept {
    auto *boot = static_cast<HalvBootLibrary *>(halv_internal_calloc(1, sizeof(HalvBootLibrary)));
    if (boot == nullptr) {
        HalvDebug("Failed to allocate memory buffer.\n");
        halv::ReportBundle(name, optional, nullptr, "no memory to register it");
        return 0;
    }
    HalvLibrary *library = nullptr;
    halv::Why why = {};
    int result = halv::RegisterLibrary(name, &library, &why);
    halv::ReportBundle(name, optional, library, why.text);
    if (result != 1) {
        halv_internal_free(boot);
        if (result == -1 && optional)
            return 1;
        HalvDebug("Failed to register the library<%s>.\n", name);
        return 0;
    }
    if (const HalvBundleVersion *version = HalvGetLibraryVersion(library))
        HalvDebug("Registered the library %s with a version of %s and timestamp of %s.\n", name,
                  version->version, version->timestamp);
    else
        HalvDebug("Registered the library %s with no version information.\n", name);
    boot->library = library;
    boot->optional = optional ? 1 : 0;
    HalvStrNCpy(boot->name, name, sizeof boot->name - 1);
    boot->name[sizeof boot->name - 1] = '\0';
    boot->next = bootLibraries;
    bootLibraries = boot;
    return 1;
}

Section SectionNamed(const char *text) noexcept {
    if (HalvStrCaseCmp(text, "libraries") == 0)
        return Section::Libraries;
    if (HalvStrCaseCmp(text, "variables") == 0)
        return Section::Variables;
    halv::ReportProblem("[%s] is not a section the registry knows (libraries, variables); skipped", text);
    return Section::None;
}

/* One "label: value" line of the current section; 0 when start-up fails. */
int ApplyLine(Section section, const char *label, const char *value) noexcept {
    if (section == Section::Variables) {
        HalvSetenv(label, value);
        return 1;
    }
    if (section != Section::Libraries)
        return 1;
    if (HalvStrCaseCmp(label, "required") == 0)
        return RegisterBootLibrary(value, false);
    if (HalvStrCaseCmp(label, "optional") == 0)
        return RegisterBootLibrary(value, true);
    halv::ReportProblem("[libraries]: \"%s:\" is neither required: nor optional:; skipped", label);
    return 1;
}

/* A token the registry has no use for, noted where it is not what a
 * well-formed file holds: stray text in a known section or before the
 * first one, and tokens cut by their buffer. */
void NoteSkipped(int32_t kind, Section section, bool sectionSeen, const char *text) noexcept {
    if (kind == HALV_UCM_TOKEN_ERROR)
        halv::ReportProblem("a token longer than the reader takes (%u bytes for a label, %u for a value) was cut",
                            kKeySize - 1, kValueSize - 1);
    else if (!sectionSeen)
        halv::ReportProblem("\"%s\" before the first section; skipped", text);
    else if (section != Section::None)
        halv::ReportProblem("[%s]: \"%s\" is not a \"label: value\" line; skipped",
                            section == Section::Libraries ? "libraries" : "variables", text);
}

/* A string stream over a buffer that always keeps a terminator. */
HalvIO *OpenTokenStream(char *buffer, uint32_t size) noexcept {
    std::memset(buffer, 0, size);
    return HalvIO_Str(buffer, size - 1);
}

int32_t NextToken(HalvIO *in, HalvIO *token, char *text) noexcept {
    HalvIOStrReset(token);
    text[0] = '\0';
    return HalvReadUserCM(in, token);
}

/* Reads the registry file to its end; 0 when a bundle fails start-up. */
int ReadRegistry(HalvIO *file, HalvIO *key, char *keyText, HalvIO *value, char *valueText) noexcept {
    Section section = Section::None;
    bool sectionSeen = false;
    for (;;) {
        int32_t kind = NextToken(file, key, keyText);
        switch (kind) {
        case HALV_UCM_TOKEN_SECTION:
            section = SectionNamed(keyText);
            sectionSeen = true;
            break;
        case HALV_UCM_TOKEN_LABEL:
            if (NextToken(file, value, valueText) == HALV_UCM_TOKEN_END) {
                halv::ReportProblem("\"%s:\" at the end of the file has no value; dropped", keyText);
                return 1;
            }
            if (!sectionSeen)
                halv::ReportProblem("\"%s: %s\" before the first section; skipped", keyText, valueText);
            else if (ApplyLine(section, keyText, valueText) != 1)
                return 0;
            break;
        case HALV_UCM_TOKEN_END:
            return 1;
        default:
            NoteSkipped(kind, section, sectionSeen, keyText);
            break;
        }
    }
}

void Close(HalvIO *io) noexcept {
    if (io != nullptr)
        io->close(io);
}

} // namespace

namespace halv {

int LoadRegistry() noexcept {
    ReportBegin();
    char *path = HalvFindFile("hvregistry", "dot", nullptr);
    if (path == nullptr) {
        HalvDebug("No registry file found, using default of %s.\n", kDefaultBundle);
        ReportRegistryFile(HALV_REGISTRY_DEFAULT, nullptr);
        return RegisterBootLibrary(kDefaultBundle, true);
    }
    HalvDebug("Found and using a registry file at %s.\n", path);
    errno = 0;
    HalvIO *file = HalvIO_FileName(path, "r");
    int openError = errno;
    ReportRegistryFile(file != nullptr ? HALV_REGISTRY_READ : HALV_REGISTRY_UNREADABLE, path);
    halv_internal_free(path);
    if (file == nullptr) {
        ReportProblem("it can't be opened: %s", openError != 0 ? std::strerror(openError) : "the open failed");
        return 0;
    }
    char keyText[kKeySize];
    char valueText[kValueSize];
    HalvIO *key = OpenTokenStream(keyText, sizeof keyText);
    HalvIO *value = key != nullptr ? OpenTokenStream(valueText, sizeof valueText) : nullptr;
    if (value == nullptr)
        ReportProblem("no memory to read it");
    int result = value != nullptr ? ReadRegistry(file, key, keyText, value, valueText) : 0;
    Close(value);
    Close(key);
    Close(file);
    return result;
}

int UnregisterBootLibraries() noexcept {
    ReportEnd();
    int result = 1;
    while (HalvBootLibrary *boot = bootLibraries) {
        bootLibraries = boot->next;
        if (boot->library != nullptr && HalvUnregisterLibrary(boot->library) != 1)
            result = -1;
        halv_internal_free(boot);
    }
    return result;
}

} // namespace halv
