// File streams at the exported interface: streams over descriptors, FILE*
// and handles, files opened by name with each mode, names of any length and
// in any script, and who owns what.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "streams/file_fixture.h"
#include "streams/support.h"

using namespace files_test;
using scripted::ExpectSeeks;

namespace {

// Everything left to read, in reads of an odd size that makes every read a
// partial one.
std::string ReadAll(HalvIO *io) {
    std::string bytes;
    char buffer[7];
    for (int32_t n, guard = 0; guard < 100000 && (n = io->read(io, buffer, sizeof buffer)) > 0; ++guard)
        bytes.append(buffer, static_cast<size_t>(n));
    return bytes;
}

bool DescriptorOpen(int fd) { return fcntl(fd, F_GETFD) != -1; }

int DescriptorOf(HalvIO *io) { return static_cast<int>(*reinterpret_cast<intptr_t *>(io + 1)); }

} // namespace

TEST(FilesByName, ModesOpenCreateEmptyAndAppend) {
    ScratchDir dir;
    const std::string existing = dir / "existing.bin", created = dir / "created.bin";
    ASSERT_TRUE(WriteFile(existing, "hello world"));
    EXPECT_EQ(HalvIO_FileName(nullptr, "r"), nullptr);
    EXPECT_EQ(HalvIO_FileName(existing.c_str(), nullptr), nullptr);

    // "rb" reads what is there; a read-only stream accepts no bytes.
    HalvIO *io = HalvIO_FileName(existing.c_str(), "rb");
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(ReadAll(io), "hello world");
    EXPECT_EQ(io->read(io, nullptr, 0), 0);
    EXPECT_EQ(io->write(io, "x", 1), 0);
    ExpectSeeks(io, {{6, 0, 6}});
    EXPECT_EQ(ReadAll(io), "world");
    EXPECT_NE(io->setAutoClose, nullptr);
    io->flush(io);
    io->close(io);
    EXPECT_EQ(HalvIO_FileName((dir / "missing").c_str(), "rb"), nullptr);
    EXPECT_FALSE(Exists(dir / "missing"));

    // Each row: a mode on a file, writes after a seek to the start, and what
    // the file holds then.  "w+" empties; "a" appends even after the seek;
    // "a+b" creates; an 'a' next to 'r' appends; "r+" writes in place.
    const struct {
        std::string path;
        const char *mode, *write, *after;
    } rows[] = {
        {existing, "w+", "abc", "abc"}, {existing, "a", "def", "abcdef"}, {created, "a+b", "12", "12"},
        {created, "a+b", "34", "1234"}, {created, "r+a", "5", "12345"},   {created, "br+", "X", "X2345"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.mode);
        io = HalvIO_FileName(row.path.c_str(), row.mode);
        ASSERT_NE(io, nullptr);
        ExpectSeeks(io, {{0, 0, 0}});
        EXPECT_EQ(HalvIOWriteBytes(io, row.write, static_cast<uint32_t>(strlen(row.write))),
                  static_cast<int32_t>(strlen(row.write)));
        if (row.mode[1] == '+') { // and reads back from the start
            ExpectSeeks(io, {{0, 0, 0}});
            EXPECT_EQ(ReadAll(io), row.after);
        }
        io->close(io);
        EXPECT_EQ(ReadFile(row.path), row.after);
    }

    // A mode with none of r, w and a opens nothing and creates nothing.
    for (const char *mode : {"", "b", "+", "xt"}) {
        EXPECT_EQ(HalvIO_FileName((dir / "none").c_str(), mode), nullptr) << mode;
        EXPECT_FALSE(Exists(dir / "none")) << mode;
    }
}

TEST(FilesByName, StreamOwnsItsDescriptorAndTracesFailures) {
    ScratchDir dir;
    // (test_stream_resources checks that the stream gives its descriptor back.)
    // The descriptor isn't inherited by programs the host starts.
    HalvIO *io = HalvIO_FileName((dir / "f").c_str(), "w");
    ASSERT_NE(io, nullptr);
    EXPECT_TRUE(fcntl(DescriptorOf(io), F_GETFD) & FD_CLOEXEC);
    io->close(io);

    LogCapture log(true);
    std::string missing = dir / "no/such/file";
    EXPECT_EQ(HalvIO_FileName(missing.c_str(), "r"), nullptr);
    EXPECT_EQ(log.All(), "CreateFileW failed with code 2 for file " + missing + "\n");
}

TEST(FilesByName, LongAndNonAsciiNames) {
    ScratchDir dir;
    ASSERT_EQ(chdir(dir.path().c_str()), 0);
    // A relative name of 300 bytes, and one longer than the kernel's limit
    // of 4096 bytes: 20 levels of 250 bytes, absolute and relative.
    std::string a(100, 'a'), b(100, 'b');
    ASSERT_EQ(mkdir(a.c_str(), 0755), 0);
    ASSERT_EQ(mkdir((a + "/" + b).c_str(), 0755), 0);
    std::string relative = a + "/" + b + "/" + std::string(98, 'c');
    std::string deep = dir.path();
    int base = open(dir.path().c_str(), O_PATH | O_DIRECTORY);
    for (int level = 0; level < 20; ++level) {
        std::string component(250, static_cast<char>('a' + level));
        ASSERT_EQ(mkdirat(base, component.c_str(), 0755), 0);
        int next = openat(base, component.c_str(), O_PATH | O_DIRECTORY);
        close(base);
        ASSERT_GE(next, 0);
        base = next;
        deep += "/" + component;
    }
    close(base);
    std::string longName = deep + "//file.bin";
    ASSERT_GT(longName.size(), 5000u);
    // UTF-8 names are bytes on disk, unchanged.
    const std::string utf8 = "donn\xC3\xA9" "es_\xE6\x97\xA5\xE6\x9C\xAC_\xF0\x9F\x93\x84.txt";
    for (const std::string &name : {relative, longName, longName.substr(dir.path().size() + 1), dir / utf8}) {
        SCOPED_TRACE(name.size());
        HalvIO *io = HalvIO_FileName(name.c_str(), "w+b");
        ASSERT_NE(io, nullptr);
        EXPECT_EQ(HalvIOWriteBytes(io, "deep", 4), 4);
        io->close(io);
        io = HalvIO_FileName(name.c_str(), "rb");
        ASSERT_NE(io, nullptr);
        EXPECT_EQ(ReadAll(io), "deep");
        io->close(io);
    }
    EXPECT_EQ(ReadFile(dir.path() + "/" + relative), "deep");
    EXPECT_EQ(HalvIO_FileName((deep + "/missing").c_str(), "rb"), nullptr);
    EXPECT_TRUE(Names(dir.path()).count(utf8));

    FILE *fp = HalvFOpen((dir / utf8).c_str(), "rb");
    ASSERT_NE(fp, nullptr);
    char text[8] = {};
    EXPECT_EQ(fread(text, 1, sizeof text, fp), 4u);
    EXPECT_STREQ(text, "deep");
    EXPECT_TRUE(fcntl(fileno(fp), F_GETFD) & FD_CLOEXEC);
    fclose(fp);
    EXPECT_EQ(HalvFOpen(nullptr, "r"), nullptr);
    EXPECT_EQ(HalvFOpen((dir / "missing").c_str(), "r"), nullptr);
    ASSERT_EQ(chdir("/"), 0);
}

TEST(FilesByName, UnreadableFileForAnUnprivilegedCaller) {
    ScratchDir dir;
    const std::string secret = dir / "secret";
    ASSERT_TRUE(WriteFile(secret, "x"));
    ASSERT_EQ(chmod(secret.c_str(), 0600), 0);
    int code = RunInChild([&] {
        if (!BecomeNobody())
            return Fail("setuid");
        if (HalvIO_FileName(secret.c_str(), "rb") != nullptr)
            return Fail("a file without read permission opened");
        if (HalvIO_FileName((dir / "new").c_str(), "w") != nullptr)
            return Fail("a file was created in a directory without write permission");
        return 0;
    });
    EXPECT_EQ(code, 0);
}

TEST(DescriptorStreams, OwnershipSeekAndResults) {
    ScratchDir dir;
    const std::string path = dir / "data";
    ASSERT_TRUE(WriteFile(path, "0123456789"));
    int fd1 = open(path.c_str(), O_RDONLY), fd2 = open(path.c_str(), O_RDONLY);
    // Two wrappers work independently; close leaves the descriptor open
    // unless setAutoClose handed it over.
    HalvIO *s1 = HalvIO_FD(fd1), *s2 = HalvIO_FD(fd2);
    ASSERT_TRUE(s1 != nullptr && s2 != nullptr);
    char buffer[4];
    EXPECT_EQ(s1->read(s1, buffer, 4), 4);
    EXPECT_EQ(std::string(buffer, 4), "0123");
    ExpectSeeks(s2, {{-3, 2, 7}});
    EXPECT_EQ(ReadAll(s2), "789");
    EXPECT_EQ(s2->read(s2, buffer, 4), 0);
    ExpectSeeks(s1, {{2, 1, 6}, {0, 3, -1}, {-20, 0, -1}});
    EXPECT_EQ(s1->write(s1, "x", 1), -1); // read-only descriptor
    s1->close(s1);
    EXPECT_TRUE(DescriptorOpen(fd1));
    EXPECT_EQ(s2->setAutoClose(s2, 1), 1);
    s2->close(s2);
    EXPECT_FALSE(DescriptorOpen(fd2));
    close(fd1);

    // A pipe reads forward only.
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    HalvIO *reader = HalvIO_FD(ends[0]), *writer = HalvIO_FD(ends[1]);
    EXPECT_EQ(writer->write(writer, "pipe", 4), 4);
    ExpectSeeks(writer, {{0, 0, -1}});
    ExpectSeeks(reader, {{0, 0, -1}});
    writer->setAutoClose(writer, 1);
    writer->close(writer);
    EXPECT_EQ(ReadAll(reader), "pipe");
    EXPECT_EQ(reader->read(reader, buffer, 4), 0);
    reader->setAutoClose(reader, 1);
    reader->close(reader);
    EXPECT_FALSE(DescriptorOpen(ends[0]) || DescriptorOpen(ends[1]));

    // A descriptor that isn't open: the stream exists, and fails.
    HalvIO *dead = HalvIO_FD(987654);
    ASSERT_NE(dead, nullptr);
    EXPECT_EQ(dead->read(dead, buffer, 4), -1);
    ExpectSeeks(dead, {{0, 0, -1}});
    dead->close(dead);
}

TEST(HandleStreams, FailuresReadAsZeroAndSeeksUseAllBits) {
    ScratchDir dir;
    const std::string path = dir / "sparse";
    int fd = open(path.c_str(), O_RDWR | O_CREAT, 0644);
    HalvIO *io = HalvIO_HANDLE(fd);
    ASSERT_NE(io, nullptr);
    // Positions beyond 4 GiB pass through whole.
    const int64_t far = (int64_t{5} << 30) + 17;
    ExpectSeeks(io, {{far, 0, far}});
    EXPECT_EQ(io->write(io, "z", 1), 1);
    ExpectSeeks(io, {{0, 2, far + 1}, {-1, 1, far}});
    char c = 0;
    EXPECT_EQ(io->read(io, &c, 1), 1);
    EXPECT_EQ(c, 'z');
    ExpectSeeks(io, {{3, 9, 3}, {-1, 0, -1}}); // a whence outside 0 to 2 counts as 0
    io->close(io);
    EXPECT_TRUE(DescriptorOpen(fd));
    close(fd);

    // Read on a write-only descriptor fails: a handle stream says 0.
    int writeOnly = open(path.c_str(), O_WRONLY);
    io = HalvIO_HANDLE(writeOnly);
    EXPECT_EQ(io->read(io, &c, 1), 0);
    io->setAutoClose(io, 1);
    io->close(io);
    EXPECT_FALSE(DescriptorOpen(writeOnly));

    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    io = HalvIO_HANDLE(ends[0]);
    ExpectSeeks(io, {{0, 0, -1}});
    EXPECT_EQ(io->write(io, "x", 1), 0);
    io->close(io);
    close(ends[0]);
    close(ends[1]);
}

TEST(FileStreams, FilePointerStream) {
    ScratchDir dir;
    const std::string path = dir / "fp";
    FILE *fp = fopen(path.c_str(), "w+b");
    ASSERT_NE(fp, nullptr);
    EXPECT_EQ(HalvIO_FP(nullptr), nullptr);
    HalvIO *io = HalvIO_FP(fp);
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(io->write(io, "abcdef", 6), 6);
    io->flush(io);
    EXPECT_EQ(ReadFile(path), "abcdef");
    ExpectSeeks(io, {{2, 0, 2}});
    EXPECT_EQ(ReadAll(io), "cdef");
    ExpectSeeks(io, {{-1, 2, 5}, {0, 5, -1}, {-10, 0, -1}});
    EXPECT_EQ(io->read(io, nullptr, 0), 0);
    io->close(io);
    // Not owned: the FILE* still works after the stream is gone.
    EXPECT_EQ(fseek(fp, 0, SEEK_SET), 0);
    EXPECT_EQ(fputc('A', fp), 'A');
    fclose(fp);
    EXPECT_EQ(ReadFile(path), "Abcdef");

    // A read on a write-only FILE* fails and ferror turns 0 into -1; a
    // count of 0 then says -1 too.
    io = HalvIO_FP(fopen(path.c_str(), "wb"));
    char buffer[4];
    EXPECT_EQ(io->read(io, buffer, 4), -1);
    EXPECT_EQ(io->read(io, buffer, 0), -1);
    io->setAutoClose(io, 1);
    size_t before = OpenDescriptors();
    io->close(io);
    EXPECT_EQ(OpenDescriptors(), before - 1);

    // Over a pipe it can't seek.
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    io = HalvIO_FP(fdopen(ends[0], "rb"));
    ExpectSeeks(io, {{0, 1, -1}});
    close(ends[1]);
    EXPECT_EQ(io->read(io, buffer, 4), 0);
    io->setAutoClose(io, 1);
    io->close(io);
}
