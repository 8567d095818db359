// File streams at the exported interface: streams over descriptors, FILE*
// and handles, files opened by name with each mode, names of any length and
// in any script, and who owns what.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "streams/file_fixture.h"

using namespace files_test;

namespace {

std::string ReadAll(HalvIO *io) {
    std::string bytes;
    char buffer[7]; // an odd size makes every read a partial one
    for (int guard = 0; guard < 100000; ++guard) {
        int32_t n = io->read(io, buffer, sizeof buffer);
        if (n <= 0)
            break;
        bytes.append(buffer, static_cast<size_t>(n));
    }
    return bytes;
}

bool DescriptorOpen(int fd) { return fcntl(fd, F_GETFD) != -1; }

void Close(HalvIO *io) { io->close(io); }

} // namespace

TEST(FilesByName, ModesOpenCreateEmptyAndAppend) {
    ScratchDir dir;
    const std::string existing = dir / "existing.bin";
    ASSERT_TRUE(WriteFile(existing, "hello world"));

    EXPECT_EQ(HalvIO_FileName(nullptr, "r"), nullptr);
    EXPECT_EQ(HalvIO_FileName(existing.c_str(), nullptr), nullptr);

    // "rb" reads what is there; a read-only stream accepts no bytes.
    HalvIO *io = HalvIO_FileName(existing.c_str(), "rb");
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(ReadAll(io), "hello world");
    EXPECT_EQ(io->read(io, nullptr, 0), 0);
    EXPECT_EQ(io->write(io, "x", 1), 0);
    EXPECT_EQ(io->seek(io, 6, 0), 6);
    EXPECT_EQ(ReadAll(io), "world");
    EXPECT_NE(io->setAutoClose, nullptr);
    EXPECT_NE(io->flush, nullptr);
    io->flush(io);
    Close(io);
    EXPECT_EQ(HalvIO_FileName((dir / "missing").c_str(), "rb"), nullptr);
    EXPECT_FALSE(Exists(dir / "missing"));

    // "w+" empties an existing file and reads back what it wrote.
    io = HalvIO_FileName(existing.c_str(), "w+");
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(io->seek(io, 0, 2), 0);
    EXPECT_EQ(HalvIOWriteBytes(io, "abc", 3), 3);
    EXPECT_EQ(io->seek(io, 0, 0), 0);
    EXPECT_EQ(ReadAll(io), "abc");
    Close(io);

    // "a" writes at the end even after a seek to the start.
    io = HalvIO_FileName(existing.c_str(), "a");
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(io->seek(io, 0, 0), 0);
    EXPECT_EQ(io->write(io, "def", 3), 3);
    Close(io);
    EXPECT_EQ(ReadFile(existing), "abcdef");

    // "a+b" creates a missing file, reads from 0 and appends at the end.
    const std::string created = dir / "created.bin";
    io = HalvIO_FileName(created.c_str(), "a+b");
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(io->write(io, "12", 2), 2);
    EXPECT_EQ(io->seek(io, 0, 0), 0);
    EXPECT_EQ(io->write(io, "34", 2), 2);
    EXPECT_EQ(io->seek(io, 0, 0), 0);
    EXPECT_EQ(ReadAll(io), "1234");
    Close(io);

    // An 'a' next to 'r' sets the append flag on a read-write stream.
    io = HalvIO_FileName(created.c_str(), "r+a");
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(io->seek(io, 0, 0), 0);
    EXPECT_EQ(io->write(io, "5", 1), 1);
    Close(io);
    EXPECT_EQ(ReadFile(created), "12345");

    // "r+" writes in place without emptying.
    io = HalvIO_FileName(created.c_str(), "br+");
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(io->write(io, "X", 1), 1);
    Close(io);
    EXPECT_EQ(ReadFile(created), "X2345");

    // A mode with none of r, w and a opens nothing and creates nothing.
    for (const char *mode : {"", "b", "+", "xt"}) {
        EXPECT_EQ(HalvIO_FileName((dir / "none").c_str(), mode), nullptr) << mode;
        EXPECT_FALSE(Exists(dir / "none")) << mode;
    }
}

TEST(FilesByName, StreamOwnsItsDescriptorAndTracesFailures) {
    ScratchDir dir;
    size_t before = OpenDescriptors();
    for (int i = 0; i < 20; ++i) {
        HalvIO *io = HalvIO_FileName((dir / "f").c_str(), "w");
        ASSERT_NE(io, nullptr);
        Close(io);
    }
    EXPECT_EQ(OpenDescriptors(), before);

    // The descriptor isn't inherited by programs the host starts.
    HalvIO *io = HalvIO_FileName((dir / "f").c_str(), "r");
    ASSERT_NE(io, nullptr);
    int fd = static_cast<int>(*reinterpret_cast<intptr_t *>(io + 1));
    EXPECT_TRUE(fcntl(fd, F_GETFD) & FD_CLOEXEC);
    Close(io);

    LogCapture log(true);
    std::string missing = dir / "no/such/file";
    EXPECT_EQ(HalvIO_FileName(missing.c_str(), "r"), nullptr);
    EXPECT_EQ(log.All(), "CreateFileW failed with code 2 for file " + missing + "\n");
}

TEST(FilesByName, UrlSchemeGoesToTheUrlStream) {
    ScratchDir dir;
    ASSERT_EQ(chdir(dir.path().c_str()), 0);
    // As file names "HTTP://127.0.0.1:9/x" and "ftp://127.0.0.1:9/x" name
    // files under the directories HTTP: and ftp:.
    for (const char *scheme : {"HTTP:", "hTtP:", "ftp:"}) {
        ASSERT_EQ(mkdir(scheme, 0755), 0);
        ASSERT_EQ(mkdir((std::string(scheme) + "/127.0.0.1:9").c_str(), 0755), 0);
        ASSERT_TRUE(WriteFile(std::string(scheme) + "/127.0.0.1:9/x", "file"));
    }
    // Any case of the scheme is a URL, never the file: the URL stream finds
    // nothing on the discard port of this host (or isn't linked in at all).
    EXPECT_EQ(HalvIO_FileName("HTTP://127.0.0.1:9/x", "rb"), nullptr);
    EXPECT_EQ(HalvIO_FileName("hTtP://127.0.0.1:9/x", "rb"), nullptr);
    // Another scheme is an ordinary name.
    HalvIO *io = HalvIO_FileName("ftp://127.0.0.1:9/x", "rb");
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(ReadAll(io), "file");
    Close(io);
    ASSERT_EQ(chdir("/"), 0);
}

TEST(FilesByName, LongAndNonAsciiNames) {
    ScratchDir dir;
    ASSERT_EQ(chdir(dir.path().c_str()), 0);

    // A relative name of 300 bytes: two directories and a file.
    std::string a(100, 'a'), b(100, 'b'), c(98, 'c');
    ASSERT_EQ(mkdir(a.c_str(), 0755), 0);
    ASSERT_EQ(mkdir((a + "/" + b).c_str(), 0755), 0);
    std::string relative = a + "/" + b + "/" + c;
    ASSERT_EQ(relative.size(), 300u);
    HalvIO *io = HalvIO_FileName(relative.c_str(), "w");
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(io->write(io, "300", 3), 3);
    Close(io);
    EXPECT_EQ(ReadFile(dir.path() + "/" + relative), "300");

    // Longer than the kernel's limit of 4096 bytes: 20 levels of 250 bytes.
    std::string deep = dir.path();
    int base = open(dir.path().c_str(), O_PATH | O_DIRECTORY);
    ASSERT_GE(base, 0);
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
    io = HalvIO_FileName(longName.c_str(), "w+b");
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(HalvIOWriteBytes(io, "deep", 4), 4);
    Close(io);
    io = HalvIO_FileName(longName.c_str(), "rb");
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(ReadAll(io), "deep");
    Close(io);
    EXPECT_EQ(HalvIO_FileName((deep + "/missing").c_str(), "rb"), nullptr);
    // The relative form of the same long name opens too.
    std::string relativeLong = longName.substr(dir.path().size() + 1);
    io = HalvIO_FileName(relativeLong.c_str(), "rb");
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(ReadAll(io), "deep");
    Close(io);

    // UTF-8 names are bytes on disk, unchanged.
    const std::string name = "donn\xC3\xA9" "es_\xE6\x97\xA5\xE6\x9C\xAC_\xF0\x9F\x93\x84.txt";
    io = HalvIO_FileName((dir / name).c_str(), "w");
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(io->write(io, "utf", 3), 3);
    Close(io);
    EXPECT_TRUE(Names(dir.path()).count(name));
    FILE *fp = HalvFOpen((dir / name).c_str(), "rb");
    ASSERT_NE(fp, nullptr);
    char text[8] = {};
    EXPECT_EQ(fread(text, 1, sizeof text, fp), 3u);
    EXPECT_STREQ(text, "utf");
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
    int fd1 = open(path.c_str(), O_RDONLY);
    int fd2 = open(path.c_str(), O_RDONLY);
    ASSERT_GE(fd1, 0);
    ASSERT_GE(fd2, 0);

    // Two wrappers work independently; close leaves the descriptor open
    // unless setAutoClose handed it over.
    HalvIO *s1 = HalvIO_FD(fd1);
    HalvIO *s2 = HalvIO_FD(fd2);
    ASSERT_NE(s1, nullptr);
    ASSERT_NE(s2, nullptr);
    char buffer[4];
    EXPECT_EQ(s1->read(s1, buffer, 4), 4);
    EXPECT_EQ(std::string(buffer, 4), "0123");
    EXPECT_EQ(s2->seek(s2, -3, 2), 7);
    EXPECT_EQ(s2->read(s2, buffer, 4), 3);
    EXPECT_EQ(std::string(buffer, 3), "789");
    EXPECT_EQ(s2->read(s2, buffer, 4), 0);
    EXPECT_EQ(s1->seek(s1, 2, 1), 6);
    EXPECT_EQ(s1->seek(s1, 0, 3), -1);
    EXPECT_EQ(s1->seek(s1, -20, 0), -1);
    EXPECT_EQ(s1->write(s1, "x", 1), -1); // read-only descriptor
    Close(s1);
    EXPECT_TRUE(DescriptorOpen(fd1));
    EXPECT_EQ(s2->setAutoClose(s2, 1), 1);
    Close(s2);
    EXPECT_FALSE(DescriptorOpen(fd2));
    close(fd1);

    // A pipe reads forward only.
    int pipeEnds[2];
    ASSERT_EQ(pipe(pipeEnds), 0);
    HalvIO *reader = HalvIO_FD(pipeEnds[0]);
    HalvIO *writer = HalvIO_FD(pipeEnds[1]);
    EXPECT_EQ(writer->write(writer, "pipe", 4), 4);
    EXPECT_EQ(writer->seek(writer, 0, 0), -1);
    writer->setAutoClose(writer, 1);
    Close(writer);
    EXPECT_EQ(reader->seek(reader, 0, 0), -1);
    EXPECT_EQ(ReadAll(reader), "pipe");
    EXPECT_EQ(reader->read(reader, buffer, 4), 0);
    reader->setAutoClose(reader, 1);
    Close(reader);

    // A descriptor that isn't open: the stream exists, and fails.
    HalvIO *dead = HalvIO_FD(987654);
    ASSERT_NE(dead, nullptr);
    EXPECT_EQ(dead->read(dead, buffer, 4), -1);
    EXPECT_EQ(dead->seek(dead, 0, 0), -1);
    Close(dead);
}

TEST(HandleStreams, FailuresReadAsZeroAndSeeksUseAllBits) {
    ScratchDir dir;
    const std::string path = dir / "sparse";
    int fd = open(path.c_str(), O_RDWR | O_CREAT, 0644);
    ASSERT_GE(fd, 0);
    HalvIO *io = HalvIO_HANDLE(fd);
    ASSERT_NE(io, nullptr);
    // Positions beyond 4 GiB pass through whole.
    const int64_t far = (int64_t{5} << 30) + 17;
    EXPECT_EQ(io->seek(io, far, 0), far);
    EXPECT_EQ(io->write(io, "z", 1), 1);
    EXPECT_EQ(io->seek(io, 0, 2), far + 1);
    EXPECT_EQ(io->seek(io, -1, 1), far);
    char c = 0;
    EXPECT_EQ(io->read(io, &c, 1), 1);
    EXPECT_EQ(c, 'z');
    // A whence outside 0 to 2 counts as 0.
    EXPECT_EQ(io->seek(io, 3, 9), 3);
    EXPECT_EQ(io->seek(io, -1, 0), -1);
    Close(io);
    EXPECT_TRUE(DescriptorOpen(fd));
    close(fd);

    // Read on a write-only descriptor fails: a handle stream says 0.
    int writeOnly = open(path.c_str(), O_WRONLY);
    io = HalvIO_HANDLE(writeOnly);
    EXPECT_EQ(io->read(io, &c, 1), 0);
    io->setAutoClose(io, 1);
    Close(io);
    EXPECT_FALSE(DescriptorOpen(writeOnly));

    int pipeEnds[2];
    ASSERT_EQ(pipe(pipeEnds), 0);
    io = HalvIO_HANDLE(pipeEnds[0]);
    EXPECT_EQ(io->seek(io, 0, 0), -1);
    EXPECT_EQ(io->write(io, "x", 1), 0);
    Close(io);
    close(pipeEnds[0]);
    close(pipeEnds[1]);
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
    EXPECT_EQ(io->seek(io, 2, 0), 2);
    EXPECT_EQ(ReadAll(io), "cdef");
    EXPECT_EQ(io->seek(io, -1, 2), 5);
    EXPECT_EQ(io->seek(io, 0, 5), -1);
    EXPECT_EQ(io->seek(io, -10, 0), -1);
    EXPECT_EQ(io->read(io, nullptr, 0), 0);
    Close(io);
    // Not owned: the FILE* still works after the stream is gone.
    EXPECT_EQ(fseek(fp, 0, SEEK_SET), 0);
    EXPECT_EQ(fputc('A', fp), 'A');
    fclose(fp);
    EXPECT_EQ(ReadFile(path), "Abcdef");

    // A read on a write-only FILE* fails and ferror turns 0 into -1; a
    // count of 0 then says -1 too.
    fp = fopen(path.c_str(), "wb");
    io = HalvIO_FP(fp);
    char buffer[4];
    EXPECT_EQ(io->read(io, buffer, 4), -1);
    EXPECT_EQ(io->read(io, buffer, 0), -1);
    io->setAutoClose(io, 1);
    size_t before = OpenDescriptors();
    Close(io);
    EXPECT_EQ(OpenDescriptors(), before - 1);

    // Over a pipe it can't seek.
    int pipeEnds[2];
    ASSERT_EQ(pipe(pipeEnds), 0);
    fp = fdopen(pipeEnds[0], "rb");
    io = HalvIO_FP(fp);
    EXPECT_EQ(io->seek(io, 0, 1), -1);
    close(pipeEnds[1]);
    EXPECT_EQ(io->read(io, buffer, 4), 0);
    io->setAutoClose(io, 1);
    Close(io);
}
