// The halvern command run as a user runs it: the built binary spawned on
// real files in a fresh temporary directory of each test, its exit status,
// standard output and standard error captured.  Shared by the tests of
// tests/tools; HALVERN_PATH names the binary.
#ifndef HALV_TESTS_TOOLS_HALVERN_FIXTURE_H
#define HALV_TESTS_TOOLS_HALVERN_FIXTURE_H

#include <gtest/gtest.h>

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

extern char **environ;

namespace halvern_test {

using Bytes = std::string;

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
    std::ofstream out(path, std::ios::binary);
    out << bytes;
}

inline bool Exists(const std::string &path) {
    struct stat info;
    return stat(path.c_str(), &info) == 0;
}

class Halvern : public ::testing::Test {
  protected:
    void SetUp() override {
        char templ[] = "/tmp/halvern-test-XXXXXX";
        ASSERT_NE(mkdtemp(templ), nullptr);
        dir_ = templ;
    }
    void TearDown() override {
        std::string command = "rm -rf '" + dir_ + "'";
        ASSERT_EQ(std::system(command.c_str()), 0);
    }

    std::string Path(const std::string &name) const { return dir_ + "/" + name; }

    // Starts halvern with args and the test's environment plus env_;
    // stdout and stderr go to files in the temp dir.  The pid, or -1.
    // Another program (a reference reader) goes in program.
    pid_t Spawn(const std::vector<std::string> &args, std::string program = HALVERN_PATH) {
        std::vector<char *> argv;
        argv.push_back(program.data());
        std::vector<std::string> copies = args;
        for (std::string &a : copies)
            argv.push_back(a.data());
        argv.push_back(nullptr);
        std::vector<std::string> envText;
        for (char **e = environ; *e != nullptr; ++e)
            envText.push_back(*e);
        for (const std::string &extra : env_)
            envText.push_back(extra);
        std::vector<char *> envp;
        for (std::string &e : envText)
            envp.push_back(e.data());
        envp.push_back(nullptr);
        std::string outPath = Path(".stdout"), errPath = Path(".stderr");
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 1, outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        posix_spawn_file_actions_addopen(&actions, 2, errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        pid_t pid = 0;
        int spawned = posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), envp.data());
        posix_spawn_file_actions_destroy(&actions);
        EXPECT_EQ(spawned, 0);
        return spawned == 0 ? pid : -1;
    }

    // Waits for a spawned halvern; killed after 60 s so a hang fails
    // instead of blocking.
    Result Wait(pid_t pid) {
        Result result;
        if (pid < 0)
            return result;
        int status = 0;
        for (int waited = 0;; ++waited) {
            pid_t done = waitpid(pid, &status, WNOHANG);
            if (done == pid)
                break;
            if (waited == 6000) {
                kill(pid, SIGKILL);
                waitpid(pid, &status, 0);
                ADD_FAILURE() << "halvern hung";
                break;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        EXPECT_TRUE(WIFEXITED(status)) << "halvern died by a signal: " << (WIFSIGNALED(status) ? WTERMSIG(status) : 0);
        result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        std::string outPath = Path(".stdout"), errPath = Path(".stderr");
        result.out = ReadFile(outPath);
        result.err = ReadFile(errPath);
        unlink(outPath.c_str());
        unlink(errPath.c_str());
        return result;
    }

    Result Run(const std::vector<std::string> &args, const std::string &program = HALVERN_PATH) {
        return Wait(Spawn(args, program));
    }

    // The names in the temp dir (without the capture files).
    std::vector<std::string> Listing() const {
        std::vector<std::string> names;
        DIR *d = opendir(dir_.c_str());
        if (d == nullptr)
            return names;
        while (dirent *e = readdir(d))
            if (e->d_name[0] != '.')
                names.push_back(e->d_name);
        closedir(d);
        std::sort(names.begin(), names.end());
        return names;
    }

    // A failing command: non-zero exit, the reason on stderr, no output,
    // no temporary left over.
    void ExpectRefused(const std::vector<std::string> &args, const std::string &output, const std::string &phrase) {
        std::vector<std::string> before = Listing();
        Result r = Run(args);
        EXPECT_NE(r.status, 0) << r.err;
        EXPECT_NE(r.err.find("halvern: "), std::string::npos) << r.err;
        EXPECT_NE(r.err.find(phrase), std::string::npos) << "stderr: " << r.err;
        if (!output.empty()) {
            EXPECT_FALSE(Exists(Path(output))) << output << " was left behind";
        }
        EXPECT_EQ(Listing(), before) << "files appeared or vanished";
    }

    std::string dir_;
    std::vector<std::string> env_; // NAME=value added to the environment of halvern
};

} // namespace halvern_test

#endif
