// The halvern command run as a user runs it: the built binary spawned on
// real files in a fresh temporary directory of each test, its exit status,
// standard output and standard error captured; and the stored images the
// tests write byte by byte and read back.  Shared by the tests of
// tests/tools; HALVERN_PATH names the binary.
#ifndef HALV_TESTS_TOOLS_HALVERN_FIXTURE_H
#define HALV_TESTS_TOOLS_HALVERN_FIXTURE_H

#include <gtest/gtest.h>

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

extern char **environ;

namespace halvern_test {

using Bytes = std::string;
using Args = std::vector<std::string>;

struct Result {
    int status = -1;
    std::string out, err;
};

inline std::string ReadFile(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

inline void WriteFile(const std::string &path, const std::string &bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

// The names in dir, sorted, without the hidden ones (the capture files).
inline std::vector<std::string> Names(const std::string &dir) {
    std::vector<std::string> names;
    if (DIR *d = opendir(dir.c_str())) {
        while (dirent *e = readdir(d))
            if (e->d_name[0] != '.')
                names.push_back(e->d_name);
        closedir(d);
    }
    std::sort(names.begin(), names.end());
    return names;
}

struct Layout {
    uint32_t width = 5, height = 7, parts = 3, bits = 8;
    bool pixelInterleave = false;
    bool big = false; // stored byte order
    uint32_t seed = 0;
    uint32_t SampleBytes() const { return bits == 16 ? 2 : 1; }
    uint32_t SepBytes() const { return width * SampleBytes() * (pixelInterleave ? parts : 1); }
    uint32_t Seps() const { return pixelInterleave ? 1 : parts; }
    uint32_t LineBytes() const { return SepBytes() * Seps(); }
    uint32_t MaxValue() const { return bits == 16 ? 0xFFFF : 0xFF; }
};

// Sample values in reading order of the stored lines.
inline std::vector<uint32_t> SampleValues(const Layout &l) {
    std::vector<uint32_t> values;
    for (uint32_t i = 0; i < l.width * l.parts * l.height; ++i)
        values.push_back(l.bits == 16 ? (i * 2311u + 977u + l.seed * 31) & 0xFFFF
                                      : (i * 37u + 11u + l.seed * 31) & 0xFF);
    return values;
}

inline Bytes StoreSamples(const std::vector<uint32_t> &values, uint32_t bits, bool big) {
    Bytes out;
    for (uint32_t v : values) {
        if (bits == 8)
            out += (char)v;
        else
            out += big ? Bytes{(char)(v >> 8), (char)(v & 0xFF)} : Bytes{(char)(v & 0xFF), (char)(v >> 8)};
    }
    return out;
}

inline std::string Repeat(uint32_t value, uint32_t count) {
    std::string text;
    for (uint32_t i = 0; i < count; ++i)
        text += (i ? " " : "") + std::to_string(value);
    return text;
}

// The header text of a stored image, end marker included.
inline Bytes HeaderText(const Layout &l, const std::string &format, const std::string &pixels = "",
                        const std::string &scanlines = "") {
    return "[ID]\nformat: " + format + "\nbinary: " + std::string(4, '\0') + "\nversion: " +
           (format == "internal" ? "2.1" : "1.0") + "\narchitecture: " + (l.big ? "type 1" : "type 2") +
           "\n\n[Raster]\npixels: " + (pixels.empty() ? std::to_string(l.width) : pixels) + "\nscanlines: " +
           (scanlines.empty() ? std::to_string(l.height) : scanlines) + "\n\n[Encoding]\nimageParts: " +
           std::to_string(l.parts) + " 0 0\nbytes/sl: " + Repeat(l.SepBytes(), l.Seps()) + "\nbits/sample: " +
           Repeat(l.bits, l.Seps()) + "\ninterleave: " + (l.pixelInterleave ? "pixel" : "scanline") +
           "\n\n[Photometry]\nname: " + (l.parts == 3 ? "rgbLinear" : "grayLinear") +
           "\n\n[Origin]\nsite: testbench\n\n[End]\f\n";
}

inline Bytes Word32(uint32_t v, bool big) {
    Bytes out(4, '\0');
    for (int i = 0; i < 4; ++i)
        out[big ? 3 - i : i] = (char)((v >> (8 * i)) & 0xFF);
    return out;
}

inline uint32_t ReadWord32(const Bytes &b, size_t at, bool big) {
    uint32_t v = 0;
    for (int i = 0; i < 4; ++i)
        v |= (uint32_t)(unsigned char)b[at + (big ? 3 - i : i)] << (8 * i);
    return v;
}

inline Bytes ExtRecord(uint32_t bytes, uint32_t lines, uint32_t aux, bool big) {
    return Word32(bytes, big) + Word32(lines, big) + Word32(aux, big) + Word32(0, big);
}

// The image in either format: image-ext data as two chunks (3 lines, then
// the rest) with aux words 7 and 8.
inline Bytes StoredImage(const Layout &l, const std::string &format) {
    Bytes data = StoreSamples(SampleValues(l), l.bits, l.big);
    Bytes file = HeaderText(l, format);
    if (format == "internal")
        return file + data;
    uint32_t first = 3 * l.LineBytes();
    return file + ExtRecord(first, 3, 7, l.big) + data.substr(0, first) +
           ExtRecord((uint32_t)data.size() - first, l.height - 3, 8, l.big) + data.substr(first);
}

inline size_t DataStart(const Bytes &file) {
    size_t end = file.find("[End]\f\n");
    return end == std::string::npos ? std::string::npos : end + 7;
}

// What stands behind the header (as "no header" when there is none).
inline Bytes Behind(const Bytes &file) {
    size_t start = DataStart(file);
    return start == std::string::npos ? Bytes("no header") : file.substr(start);
}

inline std::string HeaderKey(const Bytes &file, const std::string &key) {
    size_t at = file.find("\n" + key + ": ");
    if (at == std::string::npos || at > DataStart(file))
        return "";
    at += key.size() + 3;
    return file.substr(at, file.find('\n', at) - at);
}

// The values of keys in file's header, as "a | b | c", for one comparison.
inline std::string HeaderKeys(const Bytes &file, const std::vector<std::string> &keys) {
    std::string out;
    for (size_t i = 0; i < keys.size(); ++i)
        out += (i ? " | " : "") + HeaderKey(file, keys[i]);
    return out;
}

// The payload of a stored image or table of lines of lineBytes each
// (records checked and stripped unless internal), and the aux words seen.
inline Bytes StoredData(const Bytes &file, uint32_t lineBytes, uint32_t lines,
                        std::vector<uint32_t> *aux = nullptr) {
    size_t start = DataStart(file);
    EXPECT_NE(start, std::string::npos);
    if (start == std::string::npos || HeaderKey(file, "format") == "internal")
        return start == std::string::npos ? "" : file.substr(start);
    bool big = HeaderKey(file, "architecture") == "type 1";
    Bytes payload;
    uint32_t seen = 0;
    for (size_t at = start; at < file.size();) {
        EXPECT_LE(at + 16, file.size());
        if (at + 16 > file.size())
            break;
        uint32_t bytes = ReadWord32(file, at, big), chunkLines = ReadWord32(file, at + 4, big);
        EXPECT_EQ(bytes, chunkLines * lineBytes);
        if (aux)
            aux->push_back(ReadWord32(file, at + 8, big));
        payload += file.substr(at + 16, bytes);
        seen += chunkLines;
        at += 16 + bytes;
    }
    EXPECT_EQ(seen, lines);
    return payload;
}

inline Bytes StoredData(const Bytes &file, const Layout &l, std::vector<uint32_t> *aux = nullptr) {
    return StoredData(file, l.LineBytes(), l.height, aux);
}

// What Pillow, the tests' independent reader of pictures, found in a file.
struct Pil {
    std::string mode;
    uint32_t width = 0, height = 0, pages = 0;
    Bytes samples;
};

const std::string kPilScript = std::string(HALV_TEST_SOURCE_DIR) + "/tools/pil_pictures.py";

class Halvern : public ::testing::Test {
  protected:
    void SetUp() override {
        char templ[] = "/tmp/halvern-test-XXXXXX";
        ASSERT_NE(mkdtemp(templ), nullptr);
        dir_ = templ;
    }
    void TearDown() override { ASSERT_EQ(std::system(("rm -rf '" + dir_ + "'").c_str()), 0); }

    std::string Path(const std::string &name) const { return dir_ + "/" + name; }

    // The words of line as arguments, "@name" standing for Path(name).
    Args Line(const std::string &line) const {
        Args args;
        std::istringstream words(line);
        for (std::string word; words >> word;)
            args.push_back(word[0] == '@' ? Path(word.substr(1)) : word);
        return args;
    }

    // Starts program (halvern unless told) with args and the test's
    // environment plus env_; stdout and stderr go to files in the temp dir,
    // stdin comes from stdinFd when one is given.  The pid, or -1.
    pid_t Spawn(const Args &args, std::string program = HALVERN_PATH, int stdinFd = -1) {
        Args copies = args;
        std::vector<char *> argv = {program.data()};
        for (std::string &a : copies)
            argv.push_back(a.data());
        argv.push_back(nullptr);
        Args envText;
        for (char **e = environ; *e != nullptr; ++e)
            envText.push_back(*e);
        envText.insert(envText.end(), env_.begin(), env_.end());
        std::vector<char *> envp;
        for (std::string &e : envText)
            envp.push_back(e.data());
        envp.push_back(nullptr);
        std::string outPath = Path(".stdout"), errPath = Path(".stderr");
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        if (stdinFd >= 0)
            posix_spawn_file_actions_adddup2(&actions, stdinFd, 0);
        posix_spawn_file_actions_addopen(&actions, 1, outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        posix_spawn_file_actions_addopen(&actions, 2, errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        pid_t pid = 0;
        int spawned = posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), envp.data());
        posix_spawn_file_actions_destroy(&actions);
        EXPECT_EQ(spawned, 0);
        return spawned == 0 ? pid : -1;
    }

    // Waits for a spawned process; killed after 60 s so a hang fails
    // instead of blocking.
    Result Wait(pid_t pid) {
        Result result;
        if (pid < 0)
            return result;
        int pidfd = (int)syscall(SYS_pidfd_open, pid, 0);
        pollfd entry = {pidfd, POLLIN, 0};
        if (pidfd < 0 || poll(&entry, 1, 60000) != 1) {
            kill(pid, SIGKILL);
            ADD_FAILURE() << "halvern hung";
        }
        close(pidfd);
        int status = 0;
        waitpid(pid, &status, 0);
        EXPECT_TRUE(WIFEXITED(status))
            << "died by a signal: " << (WIFSIGNALED(status) ? WTERMSIG(status) : 0);
        result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        result.out = ReadFile(Path(".stdout"));
        result.err = ReadFile(Path(".stderr"));
        unlink(Path(".stdout").c_str());
        unlink(Path(".stderr").c_str());
        return result;
    }

    Result Run(const Args &args, const std::string &program = HALVERN_PATH) {
        return Wait(Spawn(args, program));
    }

    // halvern with input written down its standard input, a pipe, 7 bytes
    // at a time so that reads see pixels cut across writes.
    Result RunWithInput(const Args &args, const std::string &input) {
        int down[2];
        EXPECT_EQ(pipe2(down, O_CLOEXEC), 0);
        pid_t pid = Spawn(args, HALVERN_PATH, down[0]);
        close(down[0]);
        signal(SIGPIPE, SIG_IGN);
        for (size_t at = 0; pid > 0 && at < input.size(); at += 7)
            EXPECT_EQ(write(down[1], input.data() + at, std::min<size_t>(7, input.size() - at)),
                      (ssize_t)std::min<size_t>(7, input.size() - at));
        close(down[1]);
        signal(SIGPIPE, SIG_DFL);
        return Wait(pid);
    }

    // Makes the FIFOs (names in the temp dir) that a halvern started with
    // args reads as inputs, so that an interrupt lands mid-run for certain:
    // once halvern has opened them all, the header and `before` of the
    // image's lines go down each, then SIGINT, then the rest for as long as
    // halvern reads.  What halvern said.
    Result RunInterrupted(const Args &args, const std::vector<std::string> &fifos, const Layout &l,
                          uint32_t before) {
        for (const std::string &fifo : fifos)
            EXPECT_EQ(mkfifo(Path(fifo).c_str(), 0600), 0);
        pid_t pid = Spawn(args);
        signal(SIGPIPE, SIG_IGN);
        const std::string header = HeaderText(l, "internal"), line(l.LineBytes(), '\x5a');
        auto send = [](int fd, const std::string &bytes) {
            return write(fd, bytes.data(), bytes.size()) == (ssize_t)bytes.size();
        };
        std::vector<int> writers;
        for (const std::string &fifo : fifos)
            writers.push_back(open(Path(fifo).c_str(), O_WRONLY)); // returns once halvern opened it
        for (int fd : writers) {
            bool sent = send(fd, header);
            for (uint32_t i = 0; sent && i < before; ++i)
                sent = send(fd, line);
            EXPECT_TRUE(sent);
        }
        EXPECT_EQ(kill(pid, SIGINT), 0);
        for (int fd : writers) {
            for (uint32_t i = before; i < l.height && send(fd, line); ++i) {
            }
            close(fd);
        }
        Result r = Wait(pid);
        signal(SIGPIPE, SIG_DFL);
        for (const std::string &fifo : fifos)
            unlink(Path(fifo).c_str());
        return r;
    }

    // What Pillow reads in the file name (tests/tools/pil_pictures.py).
    Pil PilRead(const std::string &name) {
        Pil pil;
        Result r = Run({kPilScript, "read", Path(name), Path("pil.raw")}, HALV_TEST_PYTHON);
        EXPECT_EQ(r.status, 0) << r.err;
        std::istringstream(r.out) >> pil.mode >> pil.width >> pil.height >> pil.pages;
        pil.samples = ReadFile(Path("pil.raw"));
        unlink(Path("pil.raw").c_str());
        return pil;
    }

    std::vector<std::string> Listing() const { return Names(dir_); }

    // A failing command: non-zero exit, the reason on stderr, no file
    // written and no temporary left over.
    Result ExpectRefused(const Args &args, const std::string &phrase) {
        std::vector<std::string> before = Listing();
        Result r = Run(args);
        EXPECT_NE(r.status, 0) << r.err;
        EXPECT_NE(r.err.find("halvern: "), std::string::npos) << r.err;
        EXPECT_NE(r.err.find(phrase), std::string::npos) << "stderr: " << r.err;
        EXPECT_EQ(Listing(), before) << "files appeared or vanished";
        return r;
    }

    std::string dir_;
    Args env_; // NAME=value added to the environment of halvern
};

} // namespace halvern_test

#endif
