// TempFolder: a fresh folder for one test, removed with everything in it. Owned by the test.
#pragma once

#include <string>
#include <string_view>

// All that a file holds; "" when it can't be read.
std::string BytesOf(const std::string& path);

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
    // An application bundle but for its program, which is Contents/Linux/run; of the version that the helper starts.
    // Gives its path.
    std::string WriteBundle(std::string_view name, std::string_view identifier,
                            std::string_view moreOfPlist = "") const;

private:
    std::string path;
};
