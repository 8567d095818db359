// Fuzz target for the registry file read at the first HalvernInit.
//
// Each input becomes hvregistry.dot in a directory of its own, which
// HV_DATA_PATH names, and the engine is started and stopped around it.  No
// bundle is installed where the loader looks, so every bundle the file
// names fails to load.  Walking the input token by token here gives what
// the start must do by the rules of the file: [libraries] and [variables]
// (in any case) choose what "label: value" lines mean, lines before the
// first section are passed over, optional: and required: try a bundle, a
// required one that fails ends the start with 0, [variables] lines set
// variables in file order, a label with no value at the end is dropped.
// HalvernInit's result, the bundles the registry report lists (names,
// optional flags, in order, none loaded) and the variables HalvGetenv gives
// afterwards must all match.
#include <unistd.h>

#include <map>
#include <vector>

#include "fuzz/support.h"

namespace {

using fuzz::Fail;
using fuzz::FailIf;

struct Bundle {
    std::string name;
    bool optional;
};

struct Expected {
    int init = 1;
    std::vector<Bundle> bundles;
    std::map<std::string, std::string> variables;
};

Expected Model(const uint8_t *data, size_t size) {
    enum class Section { None, Libraries, Variables };
    Expected e;
    HalvIO *in = fuzz::OpenBytes(data, size);
    fuzz::TokenText key(512), value(2048);
    Section section = Section::None;
    bool seen = false;
    for (bool reading = true; reading;) {
        switch (key.Next(in)) {
        case HALV_UCM_TOKEN_SECTION:
            seen = true;
            section = fuzz::SameNoCase(key.Text(), "libraries")   ? Section::Libraries
                      : fuzz::SameNoCase(key.Text(), "variables") ? Section::Variables
                                                                        : Section::None;
            break;
        case HALV_UCM_TOKEN_LABEL: {
            if (value.Next(in) == HALV_UCM_TOKEN_END) {
                reading = false;
                break;
            }
            if (!seen)
                break;
            const std::string label = key.Text();
            if (section == Section::Variables)
                e.variables[label] = value.Text();
            if (section != Section::Libraries)
                break;
            const bool required = fuzz::SameNoCase(label, "required");
            if (required || fuzz::SameNoCase(label, "optional"))
                e.bundles.push_back({value.Text(), !required});
            if (required) {
                e.init = 0;
                reading = false;
            }
            break;
        }
        case HALV_UCM_TOKEN_END:
            reading = false;
            break;
        default:
            break;
        }
    }
    in->close(in);
    return e;
}

char registryDirectory[] = "/tmp/halv_fuzz_registry_XXXXXX";
char registryFile[sizeof registryDirectory + 16];

void RemoveRegistryFile() {
    unlink(registryFile);
    rmdir(registryDirectory);
}

/* The registry file, in a directory made once, which HV_DATA_PATH names and
 * which goes when the process ends. */
const char *RegistryFile() {
    if (registryFile[0] == '\0') {
        FailIf(mkdtemp(registryDirectory) == nullptr, "no directory for the registry file");
        std::snprintf(registryFile, sizeof registryFile, "%s/hvregistry.dot", registryDirectory);
        setenv("HV_DATA_PATH", registryDirectory, 1);
        std::atexit(RemoveRegistryFile);
    }
    return registryFile;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > (1u << 16))
        return 0;
    const Expected expected = Model(data, size);
    FILE *file = std::fopen(RegistryFile(), "wb");
    if (file == nullptr || std::fwrite(data, 1, size, file) != size || std::fclose(file) != 0)
        Fail("the registry file can't be written");

    FailIf(HalvernInit() != expected.init, "HalvernInit's result");
    HalvRegistryReport *report = HalvGetRegistryReport();
    if (report == nullptr || report->state != HALV_REGISTRY_READ || report->bundleCount != expected.bundles.size())
        Fail("the report doesn't list the bundles the file names");
    for (size_t i = 0; i < expected.bundles.size(); ++i) {
        const HalvBundleReport &b = report->bundles[i];
        if (b.name == nullptr || expected.bundles[i].name != b.name || b.optional != expected.bundles[i].optional ||
            b.loaded != 0 || b.reason == nullptr)
            Fail("a bundle in the report differs");
    }
    halv_internal_free(report);
    for (const auto &[name, value] : expected.variables) {
        const char *got = HalvGetenv(name.c_str());
        FailIf(got == nullptr || value != got, "a variable of the file isn't set");
    }
    FailIf(HalvernEnd() != 1, "HalvernEnd");
    return 0;
}
