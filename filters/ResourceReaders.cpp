#include "filters/ResourceReaders.h"

#include <fstream>
#include <limits>
#include <stdexcept>

#include "engine/Exceptions.h"
#include "engine/ModuleResources.h"
#include "engine/Types.h"

namespace vrn {

FileReader::FileReader(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw VRNException("Cannot find file with name: " + path);
    file.seekg(0, std::ios::end);
    std::streamoff end = file.tellg();
    // A directory opens and reports the largest offset as its end: no length either.
    if (end < 0 || end == std::numeric_limits<std::streamoff>::max())
        throw VRNException("FileReader: Cannot determine length of the file " + path);
    if (end == 0) throw VRNException("FileReader: Empty file " + path);
    size = static_cast<uint64_t>(end);
    file.seekg(0, std::ios::beg);
    data = std::make_shared<std::vector<char>>(static_cast<size_t>(size));
    file.read(data->data(), static_cast<std::streamsize>(size));
    if (!file || static_cast<uint64_t>(file.gcount()) != size)
        throw VRNException("FileReader: Read only " + toString(static_cast<size_t>(file.gcount())) + " out of " +
                           toString(static_cast<size_t>(size)) + " characters.");
}

DllResourceReader::DllResourceReader(const std::string& location) {
    // Split at every "|", empty pieces kept: "TYPE|NAME".
    std::vector<std::string> parts;
    size_t start = 0;
    for (;;) {
        size_t bar = location.find('|', start);
        parts.push_back(location.substr(start, bar == std::string::npos ? std::string::npos : bar - start));
        if (bar == std::string::npos) break;
        start = bar + 1;
    }
    if (parts.size() < 2) throw std::out_of_range("invalid vector<T> subscript");
    const std::string& type = parts[0];
    const std::string& resourceName = parts[1];
    const unsigned char* bytes = nullptr;
    size_t count = 0;
    if (!findModuleResource(resourceName, type, bytes, count))
        throw VRNException("Could not locate Resource File " + resourceName);
    data = std::make_shared<std::vector<char>>(bytes, bytes + count);
    size = count;
}

}  // namespace vrn
