#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace velatest {

// A directory of its own for a test, removed with all that it holds when the object goes.
class TempDir {
  public:
    enum class Enter { no, yes };

    // With Enter::yes it becomes the working directory for the life of the object.
    explicit TempDir(Enter enter = Enter::no) {
        std::string name = testing::TempDir() + "/velazce.XXXXXX";
        if (mkdtemp(name.data()) == nullptr) {
            ADD_FAILURE() << "no temporary directory " << name;
            return;
        }
        m_path = name;
        if (enter == Enter::yes) {
            std::error_code error;
            m_before = std::filesystem::current_path(error).string();
            std::filesystem::current_path(m_path, error);
            EXPECT_FALSE(error) << error.message();
        }
    }
    ~TempDir() {
        std::error_code error;
        if (!m_before.empty()) {
            std::filesystem::current_path(m_before, error);
        }
        if (!m_path.empty()) {
            std::filesystem::remove_all(m_path, error);
        }
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    // Without a slash at the end.
    const std::string& path() const { return m_path; }
    // Path of `name` in it.
    std::string operator/(const std::string& name) const { return m_path + "/" + name; }

  private:
    std::string m_path;
    std::string m_before;
};

}  // namespace velatest
