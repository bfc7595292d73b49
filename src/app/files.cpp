// The file system seam on the standard library; only writing differs between the platforms.
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

#include "app/platform_detail.h"
#include "app/seams.h"

namespace pelmark {
namespace {

namespace fs = std::filesystem;

FileResult FromError(const std::error_code& ec) {
    if (!ec) return {};
    FileStatus s =
        ec == std::errc::no_such_file_or_directory ? FileStatus::NotFound : FileStatus::Failed;
    return {s, ec.message()};
}

class StdFileSystem : public FileSystem {
  public:
    bool Exists(const std::string& path) override {
        std::error_code ec;
        return fs::exists(fs::path(path), ec);
    }
    bool IsDirectory(const std::string& path) override {
        std::error_code ec;
        return fs::is_directory(fs::path(path), ec);
    }
    std::optional<std::string> ReadAll(const std::string& path) override {
        std::error_code ec;
        if (!fs::is_regular_file(fs::path(path), ec)) return std::nullopt;
        std::ifstream in(fs::path(path), std::ios::binary);
        if (!in) return std::nullopt;
        std::ostringstream ss;
        ss << in.rdbuf();
        return ss.str();
    }
    std::optional<std::uintmax_t> FileSize(const std::string& path) override {
        std::error_code ec;
        std::uintmax_t size = fs::file_size(fs::path(path), ec);
        if (ec) return std::nullopt;
        return size;
    }
    FileResult WriteAll(const std::string& path, const std::string& data) override {
        return detail::PlatformWriteFile(path, data, false);
    }
    FileResult Append(const std::string& path, const std::string& data) override {
        return detail::PlatformWriteFile(path, data, true);
    }
    FileResult Remove(const std::string& path) override {
        std::error_code ec;
        if (!fs::remove(fs::path(path), ec) && !ec) return {FileStatus::NotFound, "file not found"};
        return FromError(ec);
    }
    FileResult Rename(const std::string& from, const std::string& to) override {
        std::error_code ec;
        fs::rename(fs::path(from), fs::path(to), ec);
        return FromError(ec);
    }
    FileResult Copy(const std::string& from, const std::string& to) override {
        std::error_code ec;
        fs::copy_file(fs::path(from), fs::path(to), fs::copy_options::overwrite_existing, ec);
        return FromError(ec);
    }
    FileResult MakeDir(const std::string& path) override {
        std::error_code ec;
        fs::create_directories(fs::path(path), ec);
        if (!ec && !fs::is_directory(fs::path(path), ec))
            return {FileStatus::Failed, "not a folder"};
        return FromError(ec);
    }
    std::vector<std::string> ListFiles(const std::string& folder) override {
        std::vector<std::string> names;
        std::error_code ec;
        for (fs::directory_iterator it(fs::path(folder), ec), end; !ec && it != end;
             it.increment(ec)) {
            std::error_code ec2;
            if (it->is_regular_file(ec2)) names.push_back(it->path().filename().string());
        }
        return names;
    }
};

}  // namespace

FileSystem& RealFileSystem() {
    static StdFileSystem instance;
    return instance;
}

}  // namespace pelmark
