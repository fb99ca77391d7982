#include "support/TempFolder.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

std::string BytesOf(const std::string& path) {
    const std::ifstream file(path, std::ios::binary);
    return (std::ostringstream() << file.rdbuf()).str();
}

TempFolder::TempFolder()
    : path((std::filesystem::canonical(std::filesystem::temp_directory_path()) / "test-XXXXXX").string()) {
    if (!::mkdtemp(path.data())) throw std::runtime_error("no temporary folder: " + path);
}

TempFolder::~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
}

std::string TempFolder::Write(std::string_view name, std::string_view bytes) const {
    const std::filesystem::path file = Join(name);
    std::filesystem::create_directories(file.parent_path());
    std::ofstream stream(file, std::ios::binary);
    stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!stream.flush()) throw std::runtime_error("can't write " + file.string());
    return file.string();
}

std::string TempFolder::WriteBundle(std::string_view name, std::string_view identifier,
                                    std::string_view moreOfPlist) const {
    const std::string bundle(name);
    Write(bundle + "/Contents/Info.plist",
          "<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key><string>" + std::string(identifier) +
              "</string><key>CFBundleExecutable</key><string>run</string><key>CFBundleVersion</key>"
              "<string>2.14</string>" +
              std::string(moreOfPlist) + "</dict></plist>");
    MakeFolder(bundle + "/Contents/Linux");
    return Join(name);
}

std::string TempFolder::MakeFolder(std::string_view name) const {
    std::filesystem::create_directories(Join(name));
    return Join(name);
}
