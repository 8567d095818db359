/*
 * tests/temp_dir.h - a fresh directory for one test, removed with everything
 * in it when the test's scope ends.  Tests put their real files here.
 */
#ifndef HALV_TESTS_TEMP_DIR_H
#define HALV_TESTS_TEMP_DIR_H

#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

namespace halvtest {

class TempDir {
  public:
    /* prefix names the directory, so a test's leftovers say whose they are. */
    explicit TempDir(const char *prefix = "halv_test") {
        std::string pattern = (std::filesystem::temp_directory_path() / prefix).string() + "_XXXXXX";
        std::vector<char> buffer(pattern.begin(), pattern.end());
        buffer.push_back('\0');
        if (mkdtemp(buffer.data()) != nullptr)
            path_ = buffer.data();
    }
    ~TempDir() {
        std::error_code ignored;
        if (!path_.empty())
            std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;

    /* Empty when the directory couldn't be made. */
    const std::string &path() const { return path_; }

    std::string File(const std::string &name) const { return path_ + "/" + name; }

    /* Writes text to the file name below the directory, making the folders
     * on its way; gives the file's path. */
    std::string Write(const std::string &name, const std::string &text) const {
        std::string file = File(name);
        std::error_code ignored;
        std::filesystem::create_directories(std::filesystem::path(file).parent_path(), ignored);
        if (FILE *fp = std::fopen(file.c_str(), "wb")) {
            std::fwrite(text.data(), 1, text.size(), fp);
            std::fclose(fp);
        }
        return file;
    }

  private:
    std::string path_;
};

} // namespace halvtest

#endif
