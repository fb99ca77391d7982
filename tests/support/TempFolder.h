// TempFolder: a fresh folder for one test, removed with everything in it. Owned by the test.
#pragma once

#include <string>
#include <string_view>

class TempFolder {
public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::string& Path() const { return path; }  // absolute, without links, no trailing slash
    std::string Join(std::string_view name) const { return path + "/" + std::string(name); }

    // Makes the folders on the way to the file too; `name` is relative to the folder. Gives the file's path.
    std::string Write(std::string_view name, std::string_view bytes) const;
    std::string MakeFolder(std::string_view name) const;

private:
    std::string path;
};
