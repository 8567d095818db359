// The logging funnel, each environment combination in a process of its own:
// the funnel reads HV_DEBUG, HV_LOGFILE and HV_SILENT once per process.
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "dpk_hvsup.h"
#include "env/probe_runner.h"

namespace {

using Pair = std::pair<std::string, std::string>;

std::string ReadFile(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

class LogProbe : public ::testing::Test {
protected:
    // Runs log_probe with exactly the given environment and actions.
    probe::Result Run(const probe::Lines &env, const probe::Lines &actions) {
        return probe::Run(HALV_TEST_BINARY_DIR "/core/log_probe", actions, env);
    }
    std::string LogFile() const { return dir_.File("log.txt"); }
    // What a run wrote to its standard error and output.
    static std::pair<std::string, std::string> ErrOut(const probe::Result &r) { return {r.err, r.out}; }
    probe::TempDir dir_{"halv_logtest"};
};

TEST_F(LogProbe, KindsGoToTheirStreamsAndDebugNeedsHvDebug) {
    probe::Result plain = Run({}, {"error:E1\n", "debug:D1\n", "print:P1\n"});
    EXPECT_EQ(plain.exitCode, 0);
    EXPECT_EQ(ErrOut(plain), Pair("E1\n", "P1\n"));
    EXPECT_EQ(ErrOut(Run({"HV_DEBUG=7"}, {"debug:D1\n", "isdebug"})), Pair("D1\n", "debug=1 level=7\n"));
    // Set to the empty string still counts as set, at level 0.
    EXPECT_EQ(ErrOut(Run({"HV_DEBUG="}, {"isdebug", "debug:D2\n"})), Pair("D2\n", "debug=1 level=0\n"));

    probe::Result unscannable = Run({"HV_DEBUG=high"}, {"isdebug"});
    EXPECT_EQ(unscannable.out, "debug=1 level=0\n");

    // Long messages are cut at the buffer limit.
    EXPECT_EQ(Run({}, {"long"}).err, std::string(1023, 'x'));
}

TEST_F(LogProbe, SilentDropsStandardStreamsButNotFileOrCallback) {
    EXPECT_EQ(ErrOut(Run({"HV_SILENT=0"}, {"error:E\n", "print:P\n", "errorresult"})),
              Pair("", "result=-1\n"));

    // Silent with a log file: debug is dropped without HV_DEBUG, errors go to the file only.
    probe::Result toFile = Run({"HV_SILENT=1", "HV_LOGFILE=" + LogFile()}, {"debug:D\n", "error:E\n"});
    EXPECT_EQ(toFile.err, "");
    EXPECT_EQ(ReadFile(LogFile()), "E\n");

    probe::Result withDebug =
        Run({"HV_SILENT=1", "HV_DEBUG=1", "HV_LOGFILE=" + LogFile()}, {"debug:D\n", "print:P\n"});
    EXPECT_EQ(ErrOut(withDebug), Pair("", ""));
    EXPECT_EQ(ReadFile(LogFile()), "E\nD\nP\n");
    EXPECT_EQ(ErrOut(Run({"HV_SILENT=1"}, {"callback", "error:E", "debug:D", "print:P"})),
              Pair("", "CB0:E|42\nCB2:P|42\n"));
}

TEST_F(LogProbe, CallbackReplacesStreamsAndLogFileStillGetsEverything) {
    probe::Result result = Run({"HV_LOGFILE=" + LogFile()}, {"callback", "error:one\n", "print:two\n"});
    EXPECT_EQ(ErrOut(result), Pair("", "CB0:one\n|42\nCB2:two\n|42\n"));
    EXPECT_EQ(ReadFile(LogFile()), "one\ntwo\n");

    // An unusable log file is ignored silently.
    probe::Result badFile = Run({"HV_LOGFILE=" + dir_.File("missing/dir/log")}, {"error:E\n"});
    EXPECT_EQ(badFile.exitCode, 0);
    EXPECT_EQ(badFile.err, "E\n");
}

TEST_F(LogProbe, SettersBeforeTheFirstMessageTurnTheEnvironmentOff) {
    probe::Result result = Run({"HV_DEBUG=3", "HV_SILENT=1"}, {"setdebug:0", "debug:D\n", "error:E\n", "isdebug"});
    EXPECT_EQ(ErrOut(result), Pair("E\n", "debug=0 level=0\n")); // HV_SILENT was never read
    EXPECT_EQ(ErrOut(Run({}, {"setlevel:5", "debug:D\n", "isdebug"})), Pair("D\n", "debug=1 level=5\n"));
}

TEST_F(LogProbe, AbortReportsThenRaisesSigabrt) {
    probe::Result result = Run({"ASAN_OPTIONS=handle_abort=0"}, {"abort:fatal state\n", "print:never\n"});
    EXPECT_EQ(result.exitCode, 128 + SIGABRT);
    EXPECT_EQ(ErrOut(result), Pair("fatal state\n", ""));
}

} // namespace
