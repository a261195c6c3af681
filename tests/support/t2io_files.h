// A fresh folder below the system's temporary folder, removed with everything in it at
// the end, and whole-file reads and writes inside it (plain std::filesystem, not the
// library, so a fault in the library's files cannot hide in the helper).
#ifndef VARDO_TEST_T2IO_FILES_H
#define VARDO_TEST_T2IO_FILES_H

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

namespace vardo_test {

struct TempDir {
    std::filesystem::path path;

    explicit TempDir(const std::string& prefix = "vardo_t_")
    {
        std::random_device rd;
        do
            path = std::filesystem::temp_directory_path() / (prefix + std::to_string(rd()) + std::to_string(rd()));
        while (!std::filesystem::create_directory(path));
    }
    ~TempDir()
    {
        std::error_code ec;
        std::filesystem::remove_all(path, ec);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    // The file's path as UTF-8 text.
    std::string str(const std::string& name) const { return (path / std::filesystem::u8path(name)).u8string(); }
    // Writes bytes (any byte container) to the file; returns its path.
    template <class Bytes> std::string write(const std::string& name, const Bytes& bytes) const
    {
        std::ofstream(path / std::filesystem::u8path(name), std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        return str(name);
    }
    // The file's bytes (empty when missing) in the container asked for.
    template <class Bytes = std::string> Bytes read(const std::string& name) const
    {
        std::ifstream in(path / std::filesystem::u8path(name), std::ios::binary);
        return Bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    }
};

} // namespace vardo_test

#endif
