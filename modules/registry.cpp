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
#include "core/internal.h"
#include "modules/internal.h"
#include "modules/line_reader.h"

namespace {

constexpr char kDefaultBundle[] = "halv";

enum class Known { None, Libraries, Variables }; /* the sections the registry reads */

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

/* The registry file's lines: [libraries] registers bundles, [variables]
 * sets variables, everything else is passed over (and noted in the report
 * where a well-formed file wouldn't have it). */
class RegistrySink final : public halv::LineSink {
  public:
    int Section(const char *name) noexcept override {
        seen_ = true;
        if (HalvStrCaseCmp(name, "libraries") == 0)
            section_ = Known::Libraries;
        else if (HalvStrCaseCmp(name, "variables") == 0)
            section_ = Known::Variables;
        else {
            section_ = Known::None;
            halv::ReportProblem("[%s] is not a section the registry knows (libraries, variables); skipped", name);
        }
        return kGoOn;
    }

    int Line(const char *label, const char *value) noexcept override {
        if (!seen_) {
            halv::ReportProblem("\"%s: %s\" before the first section; skipped", label, value);
            return kGoOn;
        }
        if (section_ == Known::Variables)
            HalvSetenv(label, value);
        if (section_ != Known::Libraries)
            return kGoOn;
        bool required = HalvStrCaseCmp(label, "required") == 0;
        if (required || HalvStrCaseCmp(label, "optional") == 0)
            return RegisterBootLibrary(value, !required) == 1 ? kGoOn : 0;
        halv::ReportProblem("[libraries]: \"%s:\" is neither required: nor optional:; skipped", label);
        return kGoOn;
    }

    /* A label with no value at the end is dropped; the file counts as read. */
    int LabelAtEnd(const char *label) noexcept override {
        halv::ReportProblem("\"%s:\" at the end of the file has no value; dropped", label);
        return 1;
    }

    void Skipped(int32_t kind, const char *text) noexcept override {
        if (kind == HALV_UCM_TOKEN_ERROR)
            halv::ReportProblem("a token longer than the reader takes (%u bytes for a label, %u for a value) was cut",
                                halv::kLineLabelBytes - 1, halv::kLineValueBytes - 1);
        else if (!seen_)
            halv::ReportProblem("\"%s\" before the first section; skipped", text);
        else if (section_ != Known::None)
            halv::ReportProblem("[%s]: \"%s\" is not a \"label: value\" line; skipped",
                                section_ == Known::Libraries ? "libraries" : "variables", text);
    }

  private:
    Known section_ = Known::None;
    bool seen_ = false;
};

/* The registry step of the first HalvernInit, under the master lock. */
int LoadRegistry() noexcept {
    using namespace halv;
    if (EngineRegistryLoadDisabled())
        return 1;
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
    RegistrySink sink;
    int result = ReadSectionLines(file, sink);
    file->close(file);
    return result;
}

/* Its undo at the last HalvernEnd: the boot registrations are dropped. */
int UnregisterBootLibraries() noexcept {
    halv::ReportEnd();
    int result = 1;
    while (HalvBootLibrary *boot = bootLibraries) {
        bootLibraries = boot->next;
        if (boot->library != nullptr && HalvUnregisterLibrary(boot->library) != 1)
            result = -1;
        halv_internal_free(boot);
    }
    return result;
}

} // namespace

HALV_ENGINE_STEP(registryStep) = {LoadRegistry, UnregisterBootLibraries};
