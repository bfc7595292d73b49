// Writing files on Windows: a file another program holds open is told apart from other failures.
#include <gtest/gtest.h>
#include <windows.h>

#include "app/seams.h"
#include "fakes/fakes.h"

namespace pelmark {
namespace {

TEST(WinFilesTest, HeldFileIsReportedSoTheCallerCanRetry) {
    test::TempDir dir;
    std::string path = dir.File("Pelmark.ini");
    FileSystem& fs = RealFileSystem();
    ASSERT_TRUE(fs.WriteAll(path, "[frmMain]\r\n").ok());

    // Another program (an editor, a backup tool) has the file open without sharing it.
    HANDLE other = CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                               OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(other, INVALID_HANDLE_VALUE);
    FileResult held = fs.WriteAll(path, "new");
    EXPECT_EQ(held.status, FileStatus::HeldByOther) << held.error;
    EXPECT_EQ(fs.Append(path, "more").status, FileStatus::HeldByOther);
    CloseHandle(other);

    EXPECT_TRUE(fs.Append(path, "[]\r\n").ok());
    EXPECT_EQ(*fs.ReadAll(path), "[frmMain]\r\n[]\r\n");
    FileResult missing = fs.WriteAll(dir.File("no-such-folder\\x.txt"), "x");
    EXPECT_EQ(missing.status, FileStatus::NotFound);
    EXPECT_NE(missing.error.find("CreateFileA("), std::string::npos) << missing.error;
}

}  // namespace
}  // namespace pelmark
