// Temporary files (the directory choice, names, messages, the stream whose file goes
// with it) and the smart buffers that spill into them (memory up to the limit, then
// bounded files, deleted as they are consumed; what happens when spilling is impossible).
#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/statvfs.h>

#include <deque>
#include <random>
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
bool IsTempName(const std::string &base) {
    return std::regex_match(base, std::regex("_ha[A-Za-z0-9]{6}\\.tmp"));
}

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

// Every test spills into a directory of its own, which must be empty again
// when its buffers are gone.
class SmartBuffers : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_FALSE(spill_.path().empty());
        HalvSetenv("HALV_TEMP", spill_.path().c_str());
    }
    void TearDown() override {
        for (const char *name : {"HALV_TEMP", "HALV_MEMORY_MAX", "HALV_TEMPFILE_MAX"})
            HalvSetenv(name, nullptr);
        EXPECT_TRUE(SpillFiles().empty()) << "temporary files left behind";
    }

    static void Limits(const char *memoryMax, const char *tempFileMax) {
        HalvSetenv("HALV_MEMORY_MAX", memoryMax);
        HalvSetenv("HALV_TEMPFILE_MAX", tempFileMax);
    }
    std::set<std::string> SpillFiles() const { return Names(spill_.path()); }

    static int32_t Append(HalvSmartBuffer *sb, const std::string &bytes) {
        return HalvSBAppend(sb, bytes.data(), static_cast<uint32_t>(bytes.size()));
    }
    static std::string Read(HalvSmartBuffer *sb, uint32_t count) {
        std::string bytes(count, '\0');
        bytes.resize(HalvSBRead(sb, bytes.data(), count));
        return bytes;
    }
    static std::string Peek(HalvSmartBuffer *sb, int64_t offset, uint32_t count) {
        std::string bytes(count, '\0');
        bytes.resize(HalvSBPeek(sb, offset, bytes.data(), count));
        return bytes;
    }
    static size_t Blocks(const HalvSmartBuffer *sb) {
        size_t n = 0;
        for (const HalvSmartBufferBlock *b = sb->head; b != nullptr; b = b->next)
            ++n;
        return n;
    }
    static const HalvSmartBufferBlock *Block(const HalvSmartBuffer *sb, size_t index) {
        const HalvSmartBufferBlock *b = sb->head;
        while (b != nullptr && index-- > 0)
            b = b->next;
        return b;
    }
    static int64_t FileSizeOnDisk(const char *name) {
        struct stat info;
        return name != nullptr && stat(name, &info) == 0 ? info.st_size : -1;
    }

    ScratchDir spill_;
};

} // namespace

TEST_F(SmartBuffers, LimitsComeFromTheEnvironment) {
    // Built-in defaults; numbers read as far as they go; values that aren't
    // numbers leave the start values.  The block size is the smaller of the
    // argument and the memory limit, except in memory-only mode.
    const struct {
        const char *memoryMax, *tempFileMax;
        int32_t memoryOnly;
        uint32_t blockSize, wantMemory;
        int64_t wantFiles;
        uint32_t wantBlock;
    } rows[] = {
        {nullptr, nullptr, 0, 4096, 15360, 10240, 4096}, {" 42", "12abc", 0, 4096, 42, 12, 42},
        {" 42", "12abc", 1, 4096, 42, 12, 4096},         {"lots", "", 0, 256, 20000000, 1000000, 256},
    };
    for (const auto &row : rows) {
        Limits(row.memoryMax, row.tempFileMax);
        HalvSmartBuffer *sb = HalvSBInit(row.memoryOnly, row.blockSize);
        ASSERT_NE(sb, nullptr);
        EXPECT_EQ(sb->memoryMax, row.wantMemory);
        EXPECT_EQ(sb->tempFileMax, row.wantFiles);
        EXPECT_EQ(sb->blockSize, row.wantBlock);
        EXPECT_EQ(sb->memoryOnly, row.memoryOnly);
        EXPECT_EQ(HalvSBRead(sb, nullptr, 0), 0u);
        EXPECT_EQ(Read(sb, 1), "");
        EXPECT_EQ(HalvSBBytesAvailable(sb), 0);
        EXPECT_EQ(HalvSBBytesInMemory(sb), 0u);
        HalvSBFree(sb);
    }
    HalvSBFree(nullptr);
}

TEST_F(SmartBuffers, MemoryBlocksGrowByBlockSize) {
    HalvSmartBuffer *sb = HalvSBInit(1, 256);
    std::string first = Pattern(1000), second = Pattern(10, 1);
    EXPECT_EQ(Append(sb, first), 1000);
    ASSERT_EQ(Blocks(sb), 1u);
    EXPECT_EQ(sb->head->capacity, 1000u);
    EXPECT_EQ(Append(sb, second), 10);
    ASSERT_EQ(Blocks(sb), 2u);
    EXPECT_EQ(sb->tail->capacity, 256u);
    EXPECT_EQ(HalvSBBytesInMemory(sb), 1010u);
    EXPECT_EQ(Read(sb, 2000), first + second);
    EXPECT_EQ(Blocks(sb), 0u);
    EXPECT_EQ(sb->head, nullptr);
    EXPECT_EQ(sb->tail, nullptr);
    HalvSBFree(sb);

    // 100-byte appends fill a 256-byte block, then start the next.
    sb = HalvSBInit(0, 256);
    std::string all;
    for (unsigned i = 0; i < 3; ++i) {
        std::string piece = Pattern(100, i);
        EXPECT_EQ(Append(sb, piece), 100);
        all += piece;
    }
    ASSERT_EQ(Blocks(sb), 2u);
    EXPECT_EQ(sb->head->capacity, 256u);
    EXPECT_EQ(sb->head->writePtr - sb->head->readPtr, 256);
    EXPECT_EQ(sb->tail->capacity, 256u);
    EXPECT_EQ(sb->tail->writePtr - sb->tail->readPtr, 44);
    // A partly read tail still takes appends into its room.
    EXPECT_EQ(Read(sb, 280), all.substr(0, 280));
    EXPECT_EQ(Append(sb, "xyz"), 3);
    EXPECT_EQ(Blocks(sb), 1u);
    EXPECT_EQ(Read(sb, 100), all.substr(280) + "xyz");
    EXPECT_EQ(HalvSBAppend(sb, nullptr, 5), 0);
    EXPECT_EQ(HalvSBAppend(nullptr, "x", 1), 0);
    EXPECT_EQ(HalvSBAppend(sb, "x", 0), 0);
    EXPECT_EQ(HalvSBPeek(sb, 0, nullptr, 10), 0u);
    EXPECT_EQ(HalvSBPeek(nullptr, 0, nullptr, 10), 0u);
    EXPECT_EQ(HalvSBAdvance(sb, -5), 0);
    // Advancing past everything frees every block (the random operations below
    // drive peeks and advances at every offset); the emptied buffer takes appends again.
    EXPECT_EQ(Append(sb, all), 300);
    EXPECT_EQ(HalvSBAdvance(sb, 1000), 300);
    EXPECT_EQ(Blocks(sb), 0u);
    EXPECT_EQ(HalvSBAdvance(sb, 1), 0);
    EXPECT_EQ(Append(sb, "again"), 5);
    EXPECT_EQ(Read(sb, 10), "again");
    HalvSBFree(sb);
    EXPECT_TRUE(SpillFiles().empty());
}

TEST_F(SmartBuffers, SpillsExactlyBeyondTheLimit) {
    Limits("250", "1000000");
    HalvSmartBuffer *sb = HalvSBInit(0, 100);
    std::string all;
    for (unsigned i = 0; i < 3; ++i) {
        std::string piece = Pattern(100, i + 1);
        EXPECT_EQ(Append(sb, piece), 100);
        all += piece;
    }
    EXPECT_EQ(HalvSBBytesInMemory(sb), 250u);
    EXPECT_EQ(HalvSBBytesAvailable(sb), 300);
    ASSERT_EQ(Blocks(sb), 3u);
    const HalvSmartBufferBlock *third = Block(sb, 2);
    EXPECT_EQ(third->writePtr - third->readPtr, 50);
    ASSERT_NE(third->fileName, nullptr);
    EXPECT_EQ(third->fileSize, 50);
    EXPECT_EQ(FileSizeOnDisk(third->fileName), 50);
    EXPECT_EQ(SpillFiles().size(), 1u);
    EXPECT_EQ(Block(sb, 0)->fileName, nullptr);

    // Reads bring memory down; new bytes go to memory again, in a new block
    // behind the file part, and the order holds.
    EXPECT_EQ(Read(sb, 100), all.substr(0, 100));
    EXPECT_EQ(Append(sb, "0123456789"), 10);
    ASSERT_EQ(Blocks(sb), 3u);
    EXPECT_EQ(sb->tail->fileName, nullptr);
    EXPECT_EQ(sb->tail->writePtr - sb->tail->readPtr, 10);
    EXPECT_EQ(HalvSBBytesInMemory(sb), 160u);
    EXPECT_EQ(Read(sb, 170), all.substr(100, 170));
    // The file part is read; consuming it deletes its file at once.
    EXPECT_EQ(SpillFiles().size(), 1u);
    EXPECT_EQ(Read(sb, 30), all.substr(270, 30));
    EXPECT_TRUE(SpillFiles().empty());
    EXPECT_EQ(Read(sb, 100), "0123456789");
    EXPECT_EQ(HalvSBBytesAvailable(sb), 0);
    HalvSBFree(sb);
}

TEST_F(SmartBuffers, FilesOnlyAndBoundedFiles) {
    // memoryMax 0: every byte goes to files, no block has memory.
    Limits("0", "10");
    HalvSmartBuffer *sb = HalvSBInit(0, 100);
    std::string bytes = Pattern(25);
    EXPECT_EQ(Append(sb, bytes), 25);
    ASSERT_EQ(Blocks(sb), 3u);
    for (size_t i = 0; i < 3; ++i) {
        const HalvSmartBufferBlock *b = Block(sb, i);
        EXPECT_EQ(b->allocation, nullptr);
        EXPECT_EQ(b->capacity, 0u);
        EXPECT_EQ(FileSizeOnDisk(b->fileName), i < 2 ? 10 : 5);
    }
    EXPECT_EQ(SpillFiles().size(), 3u);
    EXPECT_EQ(HalvSBBytesInMemory(sb), 0u);
    EXPECT_EQ(HalvSBBytesAvailable(sb), 25);
    // The next append first fills the last file up to its bound.
    EXPECT_EQ(Append(sb, "abcdefg"), 7);
    EXPECT_EQ(FileSizeOnDisk(Block(sb, 2)->fileName), 10);
    EXPECT_EQ(FileSizeOnDisk(sb->tail->fileName), 2);
    EXPECT_EQ(Blocks(sb), 4u);

    // Peeks across files (the random operations drive every offset) consume nothing.
    std::string all = bytes + "abcdefg";
    EXPECT_EQ(Peek(sb, 8, 14), all.substr(8, 14));
    EXPECT_EQ(Peek(sb, -1, 10), "");
    EXPECT_EQ(HalvSBBytesAvailable(sb), 32);
    // Partial advances move the file offset.
    EXPECT_EQ(HalvSBAdvance(sb, 3), 3);
    EXPECT_EQ(sb->head->fileOffset, 3);
    EXPECT_EQ(Read(sb, 9), all.substr(3, 9));
    EXPECT_EQ(SpillFiles().size(), 3u);
    HalvSBFree(sb);
}

TEST_F(SmartBuffers, RandomOperationsKeepOrderAndBooks) {
    Limits("300", "97");
    std::mt19937 random(20240611);
    HalvSmartBuffer *sb = HalvSBInit(0, 64);
    std::deque<char> model;
    unsigned seed = 0;
    for (int step = 0; step < 2000; ++step) {
        int op = static_cast<int>(random() % 10);
        uint32_t size = static_cast<uint32_t>(random() % (random() % 4 == 0 ? 700 : 90));
        if (op < 4) {
            std::string bytes = Pattern(size, ++seed);
            ASSERT_EQ(Append(sb, bytes), static_cast<int32_t>(size));
            model.insert(model.end(), bytes.begin(), bytes.end());
        } else if (op < 6) {
            std::string got = Read(sb, size);
            ASSERT_EQ(got, std::string(model.begin(), model.begin() + std::min<size_t>(size, model.size())));
            model.erase(model.begin(), model.begin() + static_cast<long>(got.size()));
        } else if (op < 8) {
            int64_t offset = static_cast<int64_t>(random() % (model.size() + 20));
            std::string got = Peek(sb, offset, size);
            std::string want;
            if (static_cast<size_t>(offset) < model.size())
                want.assign(model.begin() + offset,
                            model.begin() + std::min<size_t>(offset + size, model.size()));
            ASSERT_EQ(got, want) << "step " << step;
        } else {
            int64_t dropped = HalvSBAdvance(sb, size);
            ASSERT_EQ(dropped, static_cast<int64_t>(std::min<size_t>(size, model.size())));
            model.erase(model.begin(), model.begin() + dropped);
        }
        // The books: available and inMemory match the blocks, memory stays
        // within its limit, and every file on disk belongs to a block.
        int64_t inFiles = 0;
        uint32_t inMemory = 0;
        size_t files = 0;
        for (const HalvSmartBufferBlock *b = sb->head; b != nullptr; b = b->next) {
            ASSERT_TRUE(b->capacity != 0 || b->fileName != nullptr) << "used-up block left linked";
            if (b->readPtr != nullptr)
                inMemory += static_cast<uint32_t>(b->writePtr - b->readPtr);
            if (b->fileName != nullptr) {
                ++files;
                inFiles += b->fileSize - b->fileOffset;
                ASSERT_LE(b->fileSize, 97);
            }
        }
        ASSERT_EQ(HalvSBBytesInMemory(sb), inMemory);
        ASSERT_LE(inMemory, 300u);
        ASSERT_EQ(HalvSBBytesAvailable(sb), static_cast<int64_t>(model.size()));
        ASSERT_EQ(inMemory + inFiles, static_cast<int64_t>(model.size()));
        if (step % 50 == 0) {
            ASSERT_EQ(SpillFiles().size(), files);
        }
    }
    HalvSBFree(sb);
}

TEST_F(SmartBuffers, StreamOverABuffer) {
    Limits("64", "1000");
    HalvSmartBuffer *sb = HalvSBInit(0, 32);
    EXPECT_EQ(HalvIO_SB(nullptr), nullptr);
    HalvIO *io = HalvIO_SB(sb);
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(io->setAutoClose, nullptr);
    EXPECT_EQ(io->copy, nullptr);
    EXPECT_EQ(io->seek(io, 0, 0), -1);
    EXPECT_EQ(io->seek(io, 0, 2), -1);
    char buffer[16];
    EXPECT_EQ(io->read(io, buffer, sizeof buffer), 0); // nothing now
    EXPECT_EQ(io->write(io, "hello", 5), 5);
    io->flush(io);
    EXPECT_EQ(io->read(io, buffer, 3), 3);
    EXPECT_EQ(std::string(buffer, 3), "hel");

    // A whole file through the stream: most of it spills, none is lost.
    ScratchDir dir;
    std::string payload = Pattern(50000, 9);
    ASSERT_TRUE(WriteFile(dir / "in", payload));
    HalvIO *in = HalvIO_FileName((dir / "in").c_str(), "rb");
    ASSERT_NE(in, nullptr);
    EXPECT_EQ(HalvIOCopyBytes(io, in, 0), 50000);
    in->close(in);
    EXPECT_EQ(HalvSBBytesAvailable(sb), 50002);
    EXPECT_GT(SpillFiles().size(), 0u);
    char *block = nullptr;
    uint32_t size = 0;
    // The stream can't seek, so the whole rest is read from where it is.
    ASSERT_EQ(HalvIOReadBlock(io, &block, &size), 1);
    EXPECT_EQ(std::string(block, size), "lo" + payload);
    halv_internal_free(block);
    EXPECT_TRUE(SpillFiles().empty());

    // close leaves the buffer to its owner.
    io->close(io);
    EXPECT_EQ(Append(sb, "still"), 5);
    EXPECT_EQ(Read(sb, 10), "still");
    HalvSBFree(sb);
}

TEST_F(SmartBuffers, SpillFilesThatVanishOrShrink) {
    Limits("10", "100");
    HalvSmartBuffer *sb = HalvSBInit(0, 10);
    std::string bytes = Pattern(60);
    EXPECT_EQ(Append(sb, bytes), 60);
    ASSERT_EQ(Blocks(sb), 1u);
    ASSERT_NE(sb->head->fileName, nullptr);
    // Somebody cuts the file short: the peek stops where memory ends, and no
    // byte of the file is taken from beyond its end.
    ASSERT_EQ(truncate(sb->head->fileName, 20), 0);
    EXPECT_EQ(Read(sb, 60), bytes.substr(0, 10));
    EXPECT_EQ(Read(sb, 60), "");
    EXPECT_EQ(HalvSBBytesAvailable(sb), 50);
    // And when the file is gone altogether.
    ASSERT_EQ(unlink(sb->head->fileName), 0);
    EXPECT_EQ(Peek(sb, 0, 5), "");
    EXPECT_EQ(HalvSBAdvance(sb, 50), 50);
    EXPECT_EQ(HalvSBBytesAvailable(sb), 0);
    HalvSBFree(sb);
}

TEST_F(SmartBuffers, NowhereToSpillNorToMakeATemporaryFile) {
    // Neither the configured directory nor "." can take files (root's, so
    // nobody can't write): no temporary file is made, after the messages,
    // and a smart buffer stores only what fits in memory, readable in order.
    const std::string locked = spill_ / "locked";
    ASSERT_EQ(mkdir(locked.c_str(), 0755), 0);
    int code = RunInChild([&] {
        if (!BecomeNobody() || chdir(locked.c_str()) != 0)
            return Fail("setup");
        HalvSetenv("HALV_TEMP", locked.c_str());
        LogCapture log;
        if (HalvMktemp("x") != nullptr || HalvIO_Mktemp("x") != nullptr)
            return Fail("a temporary file made in a read-only directory");
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

        LogCapture::Messages().clear();
        Limits("300", "100");
        HalvSmartBuffer *sb = HalvSBInit(0, 64);
        std::string bytes = Pattern(1000);
        if (Append(sb, bytes) != 300)
            return Fail("a spill where none is possible stored bytes");
        if (Append(sb, "more") != 0)
            return Fail("bytes stored beyond the limit");
        if (Read(sb, 100) != bytes.substr(0, 100))
            return Fail("order after a failed spill");
        if (Append(sb, bytes.substr(300, 150)) != 100)
            return Fail("memory freed by reading isn't used again");
        if (Read(sb, 1000) != bytes.substr(100, 300) || HalvSBBytesAvailable(sb) != 0)
            return Fail("bytes lost or reordered");
        HalvSBFree(sb);
        if (log.All().find("Attempt to create a temporary file failed") == std::string::npos)
            return Fail("no message about the temporary directory");
        return 0;
    });
    EXPECT_EQ(code, 0);
    EXPECT_TRUE(Names(locked).empty());
    rmdir(locked.c_str());
}

TEST_F(SmartBuffers, FullDiskEndsTheAppendWithAShortCount) {
    // A file size limit stands in for a full disk: writes beyond 4096 bytes
    // of a file fail.
    int code = RunInChild([&] {
        struct rlimit limit = {4096, 4096};
        signal(SIGXFSZ, SIG_IGN);
        if (setrlimit(RLIMIT_FSIZE, &limit) != 0)
            return Fail("setrlimit");
        Limits("1000", "10000");
        HalvSmartBuffer *sb = HalvSBInit(0, 256);
        std::string bytes = Pattern(20000);
        if (Append(sb, bytes) != 1000 + 4096)
            return Fail("short count of the first append");
        if (Blocks(sb) != 1 || Names(spill_.path()).size() != 1)
            return Fail("blocks or files made after the disk was full");
        if (Append(sb, "x") != 0)
            return Fail("append into a full file");
        if (Blocks(sb) != 1 || Names(spill_.path()).size() != 1)
            return Fail("blocks or files made by the second append");
        if (Read(sb, 30000) != bytes.substr(0, 5096))
            return Fail("bytes stored before the failure lost or reordered");
        if (!Names(spill_.path()).empty())
            return Fail("a file left after its bytes were read");
        // Appends work again once there is room.
        if (Append(sb, bytes.substr(0, 3000)) != 3000 || Read(sb, 5000) != bytes.substr(0, 3000))
            return Fail("append after the failure");
        HalvSBFree(sb);
        return Names(spill_.path()).empty() ? 0 : Fail("files left");
    });
    EXPECT_EQ(code, 0);
}

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

TEST(TempFiles, TemplateWithSlashSelectsItsDirectoryAndTheStreamsFileGoesWithIt) {
    TempSettings restore;
    ScratchDir configured, chosen;
    HalvSetenv("HALV_TEMP", configured.path().c_str());
    std::string name = TakeName(HalvMktemp((chosen.path() + "/ignored_last_part").c_str()));
    EXPECT_EQ(DirectoryOf(name), chosen.path());
    EXPECT_TRUE(IsTempName(BaseName(name)));
    EXPECT_TRUE(Names(configured.path()).empty());

    // The stream's file goes with it: its name is gone at once, so nothing
    // is left even if the process dies.
    size_t descriptors = OpenDescriptors();
    HalvIO *io = HalvIO_Mktemp((chosen.path() + "/x.dat").c_str());
    ASSERT_NE(io, nullptr);
    std::string file = FileOfStream(io);
    EXPECT_EQ(DirectoryOf(file), chosen.path());
    EXPECT_NE(file.find("(deleted)"), std::string::npos) << file;
    EXPECT_EQ(Names(chosen.path()).size(), 1u); // the HalvMktemp name only
    std::string payload = Pattern(100000), back(100000, '\0');
    EXPECT_EQ(HalvIOWriteBytes(io, payload.data(), 100000), 100000);
    EXPECT_EQ(io->seek(io, 0, 0), 0);
    EXPECT_EQ(HalvIOReadBytes(io, back.data(), 100000), 100000);
    EXPECT_EQ(back, payload);
    EXPECT_EQ(OpenDescriptors(), descriptors + 1);
    io->close(io);
    EXPECT_EQ(OpenDescriptors(), descriptors);
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
    for (std::string list :
         {smaller + "," + roomier, roomier + "," + smaller, "/no/such/dir," + smaller + "," + roomier}) {
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

