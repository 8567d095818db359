// Temporary files: the directory choice (template, HALV_TEMP list by free
// space, the default, the fallback to "."), the names, the messages when no
// directory can be used, and the stream whose file goes with it.
#include <gtest/gtest.h>

#include <sys/statvfs.h>

#include <regex>
#include <string>

#include "streams/file_fixture.h"

using namespace files_test;

namespace {

// Restores HALV_TEMP and the working directory at the end of a test.
class TempSettings {
public:
    ~TempSettings() {
        HalvSetenv("HALV_TEMP", nullptr);
        if (chdir("/") != 0)
            std::perror("chdir");
    }
};

std::string DirectoryOf(const std::string &name) { return name.substr(0, name.rfind('/')); }

std::string BaseName(const std::string &name) { return name.substr(name.rfind('/') + 1); }

// "_ha", six letters or digits, ".tmp".
bool IsTempName(const std::string &base) { return std::regex_match(base, std::regex("_ha[A-Za-z0-9]{6}\\.tmp")); }

std::string TakeName(char *name) {
    std::string copy = name != nullptr ? name : "";
    halv_internal_free(name);
    return copy;
}

uint64_t FreeKib(const std::string &directory) {
    struct statvfs info;
    if (statvfs(directory.c_str(), &info) != 0)
        return 0;
    return static_cast<uint64_t>(info.f_bavail) * info.f_frsize / 1024;
}

// The file a descriptor stream refers to, as the kernel names it.
std::string FileOfStream(HalvIO *io) {
    int fd = static_cast<int>(*reinterpret_cast<intptr_t *>(io + 1));
    char target[4096] = {};
    ssize_t n = readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), target, sizeof target - 1);
    return n > 0 ? std::string(target, static_cast<size_t>(n)) : std::string();
}

} // namespace

TEST(TempFiles, NamesAreNewEmptyUniqueFilesInTheConfiguredDirectory) {
    TempSettings restore;
    ScratchDir dir;
    ASSERT_EQ(HalvSetenv("HALV_TEMP", dir.path().c_str()), 1);
    LogCapture log(true);
    std::set<std::string> seen;
    std::vector<std::string> traces;
    for (int i = 0; i < 40; ++i) {
        std::string name = TakeName(HalvMktemp("__SmartBuffer"));
        traces.push_back("temp file <" + name + ">\n");
        ASSERT_FALSE(name.empty());
        EXPECT_EQ(DirectoryOf(name), dir.path());
        EXPECT_TRUE(IsTempName(BaseName(name))) << name;
        struct stat info;
        ASSERT_EQ(stat(name.c_str(), &info), 0);
        EXPECT_TRUE(S_ISREG(info.st_mode));
        EXPECT_EQ(info.st_size, 0);
        EXPECT_EQ(info.st_mode & 0777, 0600u);
        EXPECT_TRUE(seen.insert(name).second);
    }
    EXPECT_EQ(Names(dir.path()).size(), 40u);
    // Each name is traced when debug output is on.
    EXPECT_EQ(LogCapture::Messages(), traces);
}

TEST(TempFiles, TemplateWithSlashSelectsItsDirectoryOnly) {
    TempSettings restore;
    ScratchDir configured, chosen;
    HalvSetenv("HALV_TEMP", configured.path().c_str());
    std::string name = TakeName(HalvMktemp((chosen.path() + "/ignored_last_part").c_str()));
    EXPECT_EQ(DirectoryOf(name), chosen.path());
    EXPECT_TRUE(IsTempName(BaseName(name)));
    EXPECT_TRUE(Names(configured.path()).empty());

    HalvIO *io = HalvIO_Mktemp((chosen.path() + "/x.dat").c_str());
    ASSERT_NE(io, nullptr);
    std::string file = FileOfStream(io);
    EXPECT_EQ(DirectoryOf(file), chosen.path());
    EXPECT_NE(file.find("(deleted)"), std::string::npos) << file;
    io->close(io);
}

TEST(TempFiles, ListPicksTheDirectoryWithMostFreeSpace) {
    TempSettings restore;
    ScratchDir onRoot;
    char shmPattern[] = "/dev/shm/halv_files_XXXXXX";
    ASSERT_NE(mkdtemp(shmPattern), nullptr);
    std::string onShm = shmPattern;
    uint64_t rootFree = FreeKib(onRoot.path()), shmFree = FreeKib(onShm);
    if (std::min<uint64_t>(rootFree, 0xFFFFFFFF) == std::min<uint64_t>(shmFree, 0xFFFFFFFF))
        GTEST_SKIP() << "both file systems report the same free space";
    std::string roomier = rootFree > shmFree ? onRoot.path() : onShm;
    std::string smaller = rootFree > shmFree ? onShm : onRoot.path();

    // Whichever order: the roomier one wins; a missing entry never does.
    for (std::string list : {smaller + "," + roomier, roomier + "," + smaller, "/no/such/dir," + smaller + "," + roomier}) {
        HalvSetenv("HALV_TEMP", list.c_str());
        std::string name = TakeName(HalvMktemp("t"));
        EXPECT_EQ(DirectoryOf(name), roomier) << list;
        unlink(name.c_str());
    }
    // References in entries are expanded.
    HalvSetenv("HALV_FILES_TEST_DIR", smaller.c_str());
    HalvSetenv("HALV_TEMP", "${HALV_FILES_TEST_DIR}");
    std::string name = TakeName(HalvMktemp("t"));
    EXPECT_EQ(DirectoryOf(name), smaller);
    unlink(name.c_str());
    HalvSetenv("HALV_FILES_TEST_DIR", nullptr);
    std::error_code ignored;
    fs::remove_all(onShm, ignored);
}

TEST(TempFiles, MissingDirectoriesFallBack) {
    TempSettings restore;
    ScratchDir cwd;
    ASSERT_EQ(chdir(cwd.path().c_str()), 0);

    // No entry qualifies: the default directory.
    HalvSetenv("HALV_TEMP", "/no/such/dir");
    std::string name = TakeName(HalvMktemp("x"));
    EXPECT_EQ(DirectoryOf(name), "/tmp");
    unlink(name.c_str());

    // A template's directory that is missing, or a file: "." with a message.
    LogCapture log;
    name = TakeName(HalvMktemp("/no/such/dir/x"));
    EXPECT_EQ(DirectoryOf(name), ".");
    EXPECT_EQ(log.All(), "Error: Cannot get attributes of \"/no/such/dir\".\n");
    EXPECT_TRUE(Names(cwd.path()).count(BaseName(name)));

    ASSERT_TRUE(WriteFile(cwd / "plain", ""));
    LogCapture::Messages().clear();
    name = TakeName(HalvMktemp((cwd / "plain/x").c_str()));
    EXPECT_EQ(DirectoryOf(name), ".");
    EXPECT_EQ(log.All(), "Error: \"" + cwd.path() + "/plain\" is not a directory.\n");

    // A name in a UTF-8 directory.
    const std::string accented = cwd / "t\xC3\xA9mp_\xE2\x82\xAC";
    ASSERT_EQ(mkdir(accented.c_str(), 0755), 0);
    HalvSetenv("HALV_TEMP", accented.c_str());
    name = TakeName(HalvMktemp("x"));
    EXPECT_EQ(DirectoryOf(name), accented);
}

TEST(TempFiles, NoUsableDirectoryGivesNullAfterTheMessages) {
    ScratchDir dir;
    const std::string locked = dir / "locked";
    ASSERT_EQ(mkdir(locked.c_str(), 0755), 0); // root's, so nobody can't write
    int code = RunInChild([&] {
        if (!BecomeNobody())
            return Fail("setuid");
        if (chdir(locked.c_str()) != 0)
            return Fail("chdir");
        HalvSetenv("HALV_TEMP", locked.c_str());
        LogCapture log;
        if (HalvMktemp("x") != nullptr)
            return Fail("HalvMktemp made a file in a read-only directory");
        if (HalvIO_Mktemp("x") != nullptr)
            return Fail("HalvIO_Mktemp made a file in a read-only directory");
        const std::string final =
            "Error: Attempt to create a temporary file failed.Set your enviroment so that temp files are "
            "created in a directory with read/write permissions.";
        // Read-only directories are refused without a message of their own.
        if (LogCapture::Messages() != std::vector<std::string>{final, final})
            return Fail(("messages: " + log.All()).c_str());
        LogCapture::Messages().clear();
        if (HalvMktemp("/no/such/x") != nullptr)
            return Fail("HalvMktemp with a missing directory");
        if (log.All() != "Error: Cannot get attributes of \"/no/such\".\n" + final)
            return Fail(("messages: " + log.All()).c_str());
        return 0;
    });
    EXPECT_EQ(code, 0);
    EXPECT_TRUE(Names(locked).empty());
}

TEST(TempFiles, StreamFileGoesWithTheStream) {
    TempSettings restore;
    ScratchDir dir;
    HalvSetenv("HALV_TEMP", dir.path().c_str());
    size_t descriptors = OpenDescriptors();
    HalvIO *io = HalvIO_Mktemp("__any");
    ASSERT_NE(io, nullptr);
    // The name is gone at once: nothing is left even if the process dies.
    EXPECT_TRUE(Names(dir.path()).empty());
    EXPECT_NE(FileOfStream(io).find("(deleted)"), std::string::npos);
    std::string payload = Pattern(100000), back(100000, '\0');
    EXPECT_EQ(HalvIOWriteBytes(io, payload.data(), 100000), 100000);
    EXPECT_EQ(io->seek(io, 0, 0), 0);
    EXPECT_EQ(HalvIOReadBytes(io, back.data(), 100000), 100000);
    EXPECT_EQ(back, payload);
    EXPECT_EQ(OpenDescriptors(), descriptors + 1);
    io->close(io);
    EXPECT_EQ(OpenDescriptors(), descriptors);
}
