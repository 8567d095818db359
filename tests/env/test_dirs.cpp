// Directory walks and lists, creating and deleting, attributes, renaming
// and copying, and the lexical path canonicaliser.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "streams/file_fixture.h"

using namespace files_test;

namespace {

std::string Take(char *text) {
    std::string copy = text != nullptr ? text : "<null>";
    halv_internal_free(text);
    return copy;
}

std::string Real(const char *path, int makeAbsolute = 0, int longName = 0) {
    return Take(HalvRealPath(path, makeAbsolute, longName));
}

std::multiset<std::string> Walk(HalvDir *dir) {
    std::multiset<std::string> names;
    for (int guard = 0; guard < 10000; ++guard) {
        char *name = HalvNextDir(dir);
        if (name == nullptr)
            break;
        names.insert(Take(name));
    }
    return names;
}

} // namespace

TEST(Directories, WalkGivesEachEntryOnce) {
    ScratchDir dir;
    const std::string accented = "\xC3\xA0_\xE4\xB8\xAD";
    ASSERT_TRUE(WriteFile(dir / "one", ""));
    ASSERT_TRUE(WriteFile(dir / accented, ""));
    ASSERT_EQ(mkdir((dir / "sub").c_str(), 0755), 0);

    HalvDir *walk = HalvOpenDir(dir.path().c_str());
    ASSERT_NE(walk, nullptr);
    EXPECT_EQ(Walk(walk), (std::multiset<std::string>{".", "..", "one", accented, "sub"}));
    EXPECT_EQ(HalvNextDir(walk), nullptr);
    EXPECT_EQ(HalvNextDir(walk), nullptr);
    EXPECT_EQ(HalvCloseDir(walk), 1);

    // Ending a walk early releases its directory.
    size_t descriptors = OpenDescriptors();
    walk = HalvOpenDir(dir.path().c_str());
    EXPECT_EQ(OpenDescriptors(), descriptors + 1);
    halv_internal_free(HalvNextDir(walk));
    EXPECT_EQ(HalvCloseDir(walk), 1);
    EXPECT_EQ(OpenDescriptors(), descriptors);

    // A walk that reached its end has closed its directory already.
    walk = HalvOpenDir(dir.path().c_str());
    Walk(walk);
    EXPECT_EQ(OpenDescriptors(), descriptors);
    halv_internal_free(walk);

    EXPECT_EQ(std::tuple(HalvOpenDir((dir / "missing").c_str()), HalvOpenDir((dir / "one").c_str()),
                         HalvOpenDir(nullptr), HalvNextDir(nullptr), HalvCloseDir(nullptr)),
              std::tuple(nullptr, nullptr, nullptr, nullptr, 0));
}

TEST(Directories, ListWithoutDotEntries) {
    ScratchDir dir;
    ASSERT_TRUE(WriteFile(dir / "file", "x"));
    ASSERT_EQ(mkdir((dir / "sub").c_str(), 0755), 0);
    ASSERT_EQ(symlink((dir / "sub").c_str(), (dir / "link-to-dir").c_str()), 0);
    ASSERT_EQ(symlink((dir / "file").c_str(), (dir / "link-to-file").c_str()), 0);
    ASSERT_EQ(symlink((dir / "gone").c_str(), (dir / "dangling").c_str()), 0);

    uint32_t count = 99;
    HalvDirEntry **entries = nullptr;
    ASSERT_EQ(HalvListDir(dir.path().c_str(), &count, &entries), 1);
    ASSERT_EQ(count, 5u);
    ASSERT_EQ(HalvGetArraySize(entries), 5u);
    std::map<std::string, int> kinds;
    for (uint32_t i = 0; i < count; ++i)
        kinds[entries[i]->name] = entries[i]->isDirectory;
    EXPECT_EQ(kinds, (std::map<std::string, int>{
                         {"file", 0}, {"sub", 1}, {"link-to-dir", 1}, {"link-to-file", 0}, {"dangling", 0}}));

    // The copy slot makes an independent record; the free slot releases it.
    auto *copy = static_cast<HalvDirEntry *>(entries[0]->copy(entries[0]));
    ASSERT_NE(copy, nullptr);
    EXPECT_STREQ(copy->name, entries[0]->name);
    EXPECT_TRUE(copy->name != entries[0]->name && copy->isDirectory == entries[0]->isDirectory);
    EXPECT_EQ(HalvFreeSmartArray(entries), 1);
    copy->free(copy);

    // An empty directory: 1, a count of 0 and an empty array.
    ASSERT_EQ(HalvListDir((dir / "sub").c_str(), &count, &entries), 1);
    ASSERT_NE(entries, nullptr);
    EXPECT_EQ(std::tuple(count, entries[0]), std::tuple(0u, nullptr));
    HalvFreeSmartArray(entries);

    entries = reinterpret_cast<HalvDirEntry **>(&count);
    EXPECT_EQ(HalvListDir((dir / "missing").c_str(), &count, &entries), 0);
    EXPECT_EQ(entries, nullptr);
    EXPECT_EQ(HalvListDir((dir / "file").c_str(), &count, &entries), 0);
    EXPECT_EQ(HalvListDir(dir.path().c_str(), nullptr, &entries), 0);
    EXPECT_EQ(HalvListDir(dir.path().c_str(), &count, nullptr), 0);
}

TEST(Directories, MakeDirectories) {
    ScratchDir dir;
    const std::string one = dir / "one";
    EXPECT_EQ(HalvMkDir(one.c_str(), 0), 1);
    EXPECT_EQ(HalvIdentifyFile(one.c_str()), 1);
    EXPECT_EQ(HalvMkDir(one.c_str(), 0), -1);
    EXPECT_EQ(HalvMkDir(one.c_str(), 1), -1);
    ASSERT_TRUE(WriteFile(dir / "file", ""));
    EXPECT_EQ(HalvMkDir((dir / "file").c_str(), 1), -1);

    // A missing parent: 0 without recursion, and nothing made.
    const std::string deep = dir / "a/b/c/d";
    EXPECT_EQ(HalvMkDir(deep.c_str(), 0), 0);
    EXPECT_FALSE(Exists(dir / "a"));
    for (const char *made : {"a/b/c/d", "x/y/", "p//q", "\xC3\xB1/\xC3\xB8"}) {
        EXPECT_EQ(HalvMkDir((dir / made).c_str(), 1), 1) << made;
        EXPECT_EQ(HalvIdentifyFile((dir / made).c_str()), 1) << made;
    }

    // A file in the way of a parent is another failure.
    EXPECT_EQ(HalvMkDir((dir / "file/sub/more").c_str(), 1), 0);
    EXPECT_EQ(HalvMkDir(nullptr, 1), 0);

    // Where the caller may not write: 0 and nothing made.
    int code = RunInChild([&] {
        if (!BecomeNobody())
            return Fail("setuid");
        if (HalvMkDir((dir / "one/x").c_str(), 0) != 0)
            return Fail("plain mkdir in a read-only directory");
        if (HalvMkDir((dir / "one/x/y").c_str(), 1) != 0)
            return Fail("recursive mkdir in a read-only directory");
        return 0;
    });
    EXPECT_EQ(code, 0);
    EXPECT_FALSE(Exists(dir / "one/x"));

    char **roots = HalvGetSystemRoots();
    ASSERT_NE(roots, nullptr);
    EXPECT_STREQ(roots[0], "/");
    EXPECT_EQ(roots[1], nullptr);
    HalvFreeArray(roots);
}

TEST(Files, IdentifyAndAttributes) {
    ScratchDir dir;
    const std::string empty = dir / "empty", data = dir / "data";
    ASSERT_TRUE(WriteFile(empty, ""));
    ASSERT_TRUE(WriteFile(data, Pattern(12345)));
    EXPECT_EQ(std::vector<int>({HalvIdentifyFile(empty.c_str()), HalvIdentifyFile(dir.path().c_str()),
                                HalvIdentifyFile((dir / "missing").c_str()), HalvIdentifyFile(nullptr),
                                HalvIdentifyFile("/dev/null")}),
              (std::vector<int>{0, 1, 2, 2, 0}));

    // The result and the value stored (77 stands for none).
    auto attribute = [](const std::string &path, int which) {
        uint64_t value = 77;
        int result = HalvGetFileAttributes(path.c_str(), which, &value);
        return std::pair<int, int64_t>(result, (int64_t)value);
    };
    using Got = std::pair<int, int64_t>;
    EXPECT_EQ(attribute(empty, 2), Got(1, 0));
    EXPECT_EQ(attribute(data, 2), Got(1, 12345));
    EXPECT_EQ(attribute(dir.path(), 2), Got(1, 0));
    EXPECT_EQ(attribute(empty, 3), Got(0, 77));
    EXPECT_EQ(attribute(empty, -1), Got(0, 77));
    EXPECT_EQ(attribute(dir / "missing", 0).first, -1);
    uint64_t value = 77;
    EXPECT_EQ(HalvGetFileAttributes(nullptr, 0, &value), 0);
    EXPECT_EQ(HalvGetFileAttributes(empty.c_str(), 0, nullptr), 0);

    // Times in milliseconds since 1970, also before it.
    const struct timespec times[2] = {{1600000000, 987654321}, {1234567890, 123456789}};
    ASSERT_EQ(utimensat(AT_FDCWD, data.c_str(), times, 0), 0);
    EXPECT_EQ(attribute(data, 0), Got(1, 1600000000987));
    EXPECT_EQ(attribute(data, 1), Got(1, 1234567890123));
    const struct timespec early[2] = {{-10, 0}, {-10, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, data.c_str(), early, 0), 0);
    EXPECT_EQ(attribute(data, 1), Got(1, -10000));
}

TEST(Files, DeleteAndRenameThatNeverReplaces) {
    ScratchDir dir;
    ASSERT_TRUE(WriteFile(dir / "file", ""));
    EXPECT_EQ(HalvDeleteFile((dir / "file").c_str()), 1);
    EXPECT_FALSE(Exists(dir / "file"));
    EXPECT_EQ(HalvDeleteFile((dir / "file").c_str()), -1);
    ASSERT_EQ(mkdir((dir / "full").c_str(), 0755), 0);
    ASSERT_TRUE(WriteFile(dir / "full/inner", ""));
    EXPECT_EQ(HalvDeleteFile((dir / "full").c_str()), -1);
    EXPECT_TRUE(Exists(dir / "full/inner"));
    EXPECT_EQ(HalvDeleteFile((dir / "full/inner").c_str()), 1);
    EXPECT_EQ(HalvDeleteFile((dir / "full").c_str()), 1);
    EXPECT_FALSE(Exists(dir / "full"));
    // A link to a directory goes itself, and the directory stays.
    ASSERT_EQ(mkdir((dir / "target").c_str(), 0755), 0);
    ASSERT_EQ(symlink((dir / "target").c_str(), (dir / "link").c_str()), 0);
    EXPECT_EQ(HalvDeleteFile((dir / "link").c_str()), 1);
    EXPECT_FALSE(Exists(dir / "link"));
    EXPECT_TRUE(Exists(dir / "target"));
    EXPECT_EQ(HalvDeleteFile(nullptr), 0);

    // Rename never replaces.
    ASSERT_TRUE(WriteFile(dir / "a", "A"));
    ASSERT_TRUE(WriteFile(dir / "b", "B"));
    EXPECT_EQ(HalvRenameFile((dir / "a").c_str(), (dir / "b").c_str()), -1);
    EXPECT_EQ(ReadFile(dir / "a") + ReadFile(dir / "b"), "AB");
    EXPECT_EQ(HalvRenameFile((dir / "a").c_str(), (dir / "c").c_str()), 1);
    EXPECT_FALSE(Exists(dir / "a"));
    EXPECT_EQ(ReadFile(dir / "c"), "A");
    EXPECT_EQ(HalvRenameFile((dir / "missing").c_str(), (dir / "d").c_str()), -1);
    ASSERT_EQ(mkdir((dir / "d1").c_str(), 0755), 0);
    EXPECT_EQ(HalvRenameFile((dir / "d1").c_str(), (dir / "\xC3\xA9").c_str()), 1);
    EXPECT_EQ(HalvIdentifyFile((dir / "\xC3\xA9").c_str()), 1);
    EXPECT_EQ(HalvRenameFile(nullptr, (dir / "x").c_str()), 0);
    EXPECT_EQ(HalvRenameFile((dir / "c").c_str(), nullptr), 0);

    // Across file systems a file is copied and the original removed.
    char shmPattern[] = "/dev/shm/halv_files_XXXXXX";
    ASSERT_NE(mkdtemp(shmPattern), nullptr);
    const std::string other = std::string(shmPattern) + "/moved";
    std::string payload = Pattern(300000, 3);
    ASSERT_TRUE(WriteFile(dir / "big", payload));
    EXPECT_EQ(HalvRenameFile((dir / "big").c_str(), other.c_str()), 1);
    EXPECT_FALSE(Exists(dir / "big"));
    EXPECT_EQ(ReadFile(other), payload);
    // ... and never onto an existing file there either.
    ASSERT_TRUE(WriteFile(dir / "big2", "x"));
    EXPECT_EQ(HalvRenameFile((dir / "big2").c_str(), other.c_str()), -1);
    EXPECT_EQ(ReadFile(other), payload);
    EXPECT_TRUE(Exists(dir / "big2"));
    std::error_code ignored;
    fs::remove_all(shmPattern, ignored);
}

TEST(Files, CopyDestinationFirst) {
    ScratchDir dir;
    const std::string source = dir / "source", destination = dir / "destination";
    std::string payload = Pattern(3 << 20, 5);
    ASSERT_TRUE(WriteFile(source, payload));
    ASSERT_EQ(chmod(source.c_str(), 0640), 0);
    const struct timespec times[2] = {{1500000000, 0}, {1400000000, 250000000}};
    ASSERT_EQ(utimensat(AT_FDCWD, source.c_str(), times, 0), 0);

    EXPECT_EQ(HalvCopyFile(destination.c_str(), source.c_str(), 0), 1);
    EXPECT_EQ(ReadFile(destination), payload);
    struct stat info;
    ASSERT_EQ(stat(destination.c_str(), &info), 0);
    EXPECT_EQ(std::tuple(info.st_mode & 07777, info.st_mtim.tv_sec, info.st_mtim.tv_nsec),
              std::tuple(0640u, 1400000000L, 250000000L));

    // No overwrite: an existing destination fails and stays as it was.
    ASSERT_TRUE(WriteFile(destination, "old"));
    EXPECT_EQ(HalvCopyFile(destination.c_str(), source.c_str(), 0), -1);
    EXPECT_EQ(ReadFile(destination), "old");
    EXPECT_EQ(HalvCopyFile(destination.c_str(), source.c_str(), 1), 1);
    EXPECT_EQ(ReadFile(destination), payload);

    // Bad sources leave nothing behind; a file copied onto itself survives.
    EXPECT_EQ(HalvCopyFile((dir / "new").c_str(), (dir / "missing").c_str(), 1), -1);
    EXPECT_EQ(HalvCopyFile((dir / "new").c_str(), dir.path().c_str(), 1), -1);
    EXPECT_FALSE(Exists(dir / "new"));
    EXPECT_EQ(HalvCopyFile(source.c_str(), source.c_str(), 1), -1);
    EXPECT_EQ(ReadFile(source), payload);
    EXPECT_EQ(HalvCopyFile((dir / "no/dir/x").c_str(), source.c_str(), 1), -1);
    EXPECT_EQ(HalvCopyFile(nullptr, source.c_str(), 1), 0);
    EXPECT_EQ(HalvCopyFile(destination.c_str(), nullptr, 1), 0);

    // Across file systems, and an empty file.
    ASSERT_TRUE(WriteFile(dir / "empty", ""));
    char shmPattern[] = "/dev/shm/halv_files_XXXXXX";
    ASSERT_NE(mkdtemp(shmPattern), nullptr);
    const std::string other = std::string(shmPattern) + "/copy";
    EXPECT_EQ(HalvCopyFile(other.c_str(), source.c_str(), 0), 1);
    EXPECT_EQ(ReadFile(other), payload);
    EXPECT_EQ(HalvCopyFile((dir / "empty2").c_str(), (dir / "empty").c_str(), 0), 1);
    EXPECT_EQ(ReadFile(dir / "empty2"), "");
    std::error_code ignored;
    fs::remove_all(shmPattern, ignored);

    // A source the caller can't read: -1 and no destination.
    ASSERT_EQ(chmod(source.c_str(), 0600), 0);
    int code = RunInChild([&] {
        if (!BecomeNobody())
            return Fail("setuid");
        return HalvCopyFile("/tmp/halv_files_never", source.c_str(), 1) == -1 ? 0 : Fail("copied");
    });
    EXPECT_EQ(code, 0);
    EXPECT_FALSE(Exists("/tmp/halv_files_never"));
}

TEST(RealPath, LexicalAbsoluteAndExistingForms) {
    // Separators, "." and ".." go, with both flags 0; Windows forms are
    // ordinary names here.
    const struct {
        const char *path;
        const char *canonical;
    } cases[] = {
        {"a//b/./c/../d", "a/b/d"}, {"a/b/", "a/b"}, {"a/..", "."}, {"a/b/..", "a"}, {"/a/../b", "/b"}, {"/a/..", "/"},
        {"/..", "<null>"}, {"/a/../..", "<null>"}, {"../../a", "../../a"}, {"./a//b/./c/", "a/b/c"},
        {"././././a", "a"}, {"x/../../y", "../y"}, {"//a///b", "/a/b"}, {"/", "/"}, {"/.", "/"}, {"/./a/.", "/a"},
        {".", "."}, {"", "."}, {"..", ".."}, {".hidden/..x/...", ".hidden/..x/..."}, {"a/./../b", "b"},
        {"\xC3\xA9/../\xE4\xB8\xAD/./x", "\xE4\xB8\xAD/x"}, {nullptr, "<null>"}, {"c:\\x\\..", "c:\\x\\.."},
    };
    for (const auto &c : cases)
        EXPECT_EQ(Real(c.path), c.canonical) << (c.path ? c.path : "(null)");

    // Absolute and existing forms.
    ScratchDir dir;
    ASSERT_EQ(mkdir((dir / "sub").c_str(), 0755), 0);
    ASSERT_EQ(chdir((dir / "sub").c_str()), 0);
    EXPECT_EQ(Real("x/../y", 1), dir / "sub/y");
    EXPECT_EQ(Real("../sub/./", 1), dir / "sub");
    EXPECT_EQ(Real("", 1), dir / "sub");
    EXPECT_EQ(Real("/abs/./p", 1), "/abs/p");
    // longName: the result must exist, and an empty result doesn't.
    EXPECT_EQ(Real("../sub", 0, 1), "../sub");
    EXPECT_EQ(Real("../none", 0, 1), "<null>");
    EXPECT_EQ(Real("a/..", 0, 1), "<null>");
    EXPECT_EQ(Real((dir.path() + "/sub/..").c_str(), 0, 1), dir.path());
    ASSERT_EQ(chdir("/"), 0);
}
