// The logging funnel, each environment combination in a process of its own:
// the funnel reads HV_DEBUG, HV_LOGFILE and HV_SILENT once per process.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "dpk_hvsup.h"

namespace {

struct ProbeResult {
    std::string out;
    std::string err;
    int status = -1;
};

std::string ReadFile(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

class LogProbe : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/halv_logtest_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir_ = pattern;
    }
    void TearDown() override { std::system(("rm -rf " + dir_).c_str()); }

    // Runs log_probe with exactly the given environment and actions.
    ProbeResult Run(std::vector<std::string> env, std::vector<std::string> actions) {
        const std::string outPath = dir_ + "/out", errPath = dir_ + "/err";
        pid_t pid = fork();
        if (pid == 0) {
            int out = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
            int err = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
            dup2(out, 1);
            dup2(err, 2);
            std::string probe = std::string(HALV_TEST_BINARY_DIR) + "/core/log_probe";
            std::vector<char *> argv{probe.data()};
            for (auto &a : actions)
                argv.push_back(a.data());
            argv.push_back(nullptr);
            std::vector<char *> envp;
            for (auto &e : env)
                envp.push_back(e.data());
            envp.push_back(nullptr);
            execve(probe.c_str(), argv.data(), envp.data());
            _exit(127);
        }
        ProbeResult result;
        int status = 0;
        waitpid(pid, &status, 0);
        result.status = WIFEXITED(status) ? WEXITSTATUS(status) : WIFSIGNALED(status) ? 128 + WTERMSIG(status) : -1;
        result.out = ReadFile(outPath);
        result.err = ReadFile(errPath);
        return result;
    }

    std::string LogFile() const { return dir_ + "/log.txt"; }

    std::string dir_;
};

TEST_F(LogProbe, KindsGoToTheirStreamsAndDebugNeedsHvDebug) {
    ProbeResult plain = Run({}, {"error:E1\n", "debug:D1\n", "print:P1\n"});
    EXPECT_EQ(plain.status, 0);
    EXPECT_EQ(plain.err, "E1\n");
    EXPECT_EQ(plain.out, "P1\n");

    ProbeResult debug = Run({"HV_DEBUG=7"}, {"debug:D1\n", "isdebug"});
    EXPECT_EQ(debug.err, "D1\n");
    EXPECT_EQ(debug.out, "debug=1 level=7\n");

    // Set to the empty string still counts as set, at level 0.
    ProbeResult empty = Run({"HV_DEBUG="}, {"isdebug", "debug:D2\n"});
    EXPECT_EQ(empty.out, "debug=1 level=0\n");
    EXPECT_EQ(empty.err, "D2\n");

    ProbeResult unscannable = Run({"HV_DEBUG=high"}, {"isdebug"});
    EXPECT_EQ(unscannable.out, "debug=1 level=0\n");
}

TEST_F(LogProbe, SilentDropsStandardStreamsButNotFileOrCallback) {
    ProbeResult silent = Run({"HV_SILENT=0"}, {"error:E\n", "print:P\n", "errorresult"});
    EXPECT_EQ(silent.err, "");
    EXPECT_EQ(silent.out, "result=-1\n");

    // Silent with a log file: debug is dropped without HV_DEBUG, errors go to the file only.
    ProbeResult toFile = Run({"HV_SILENT=1", "HV_LOGFILE=" + LogFile()}, {"debug:D\n", "error:E\n"});
    EXPECT_EQ(toFile.err, "");
    EXPECT_EQ(ReadFile(LogFile()), "E\n");

    ProbeResult withDebug =
        Run({"HV_SILENT=1", "HV_DEBUG=1", "HV_LOGFILE=" + LogFile()}, {"debug:D\n", "print:P\n"});
    EXPECT_EQ(withDebug.err, "");
    EXPECT_EQ(withDebug.out, "");
    EXPECT_EQ(ReadFile(LogFile()), "E\nD\nP\n");

    ProbeResult callback = Run({"HV_SILENT=1"}, {"callback", "error:E", "debug:D", "print:P"});
    EXPECT_EQ(callback.out, "CB0:E|42\nCB2:P|42\n");
    EXPECT_EQ(callback.err, "");
}

TEST_F(LogProbe, CallbackReplacesStreamsAndLogFileStillGetsEverything) {
    ProbeResult result = Run({"HV_LOGFILE=" + LogFile()}, {"callback", "error:one\n", "print:two\n"});
    EXPECT_EQ(result.out, "CB0:one\n|42\nCB2:two\n|42\n");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(ReadFile(LogFile()), "one\ntwo\n");

    // An unusable log file is ignored silently.
    ProbeResult badFile = Run({"HV_LOGFILE=" + dir_ + "/missing/dir/log"}, {"error:E\n"});
    EXPECT_EQ(badFile.status, 0);
    EXPECT_EQ(badFile.err, "E\n");
}

TEST_F(LogProbe, SettersBeforeTheFirstMessageTurnTheEnvironmentOff) {
    ProbeResult result = Run({"HV_DEBUG=3", "HV_SILENT=1"}, {"setdebug:0", "debug:D\n", "error:E\n", "isdebug"});
    EXPECT_EQ(result.err, "E\n"); // HV_SILENT was never read
    EXPECT_EQ(result.out, "debug=0 level=0\n");

    ProbeResult level = Run({}, {"setlevel:5", "debug:D\n", "isdebug"});
    EXPECT_EQ(level.err, "D\n");
    EXPECT_EQ(level.out, "debug=1 level=5\n");
}

TEST_F(LogProbe, AbortReportsThenRaisesSigabrt) {
    ProbeResult result = Run({"ASAN_OPTIONS=handle_abort=0"}, {"abort:fatal state\n", "print:never\n"});
    EXPECT_EQ(result.status, 128 + SIGABRT);
    EXPECT_EQ(result.err, "fatal state\n");
    EXPECT_EQ(result.out, "");
}

TEST_F(LogProbe, LongMessagesAreCutAtTheBufferLimit) {
    ProbeResult result = Run({}, {"long"});
    EXPECT_EQ(result.err, std::string(1023, 'x'));
}

} // namespace
