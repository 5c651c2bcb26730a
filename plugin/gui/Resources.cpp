#include "plugin/gui/Resources.h"

#include <fstream>
#include <iterator>

namespace {
std::string& pngDirectory() {
    static std::string directory;
    return directory;
}
}  // namespace

void setPngDirectory(const std::string& directory) { pngDirectory() = directory; }

bool loadPng(const std::string& fileName, std::vector<unsigned char>& bytes) {
    if (pngDirectory().empty() || fileName.empty() || fileName.find('/') != std::string::npos) return false;
    std::ifstream file(pngDirectory() + "/" + fileName, std::ios::binary);
    if (!file) return false;
    bytes.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    return !bytes.empty();
}
