#pragma once
// Fetch the whole of a source into one byte vector: a file, or a resource the module carries.
// Load time only.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace vrn {

class FileReader {
public:
    // Reads the file in one go; throws VRNException when it is missing, empty or unreadable.
    explicit FileReader(const std::string& path);
    virtual ~FileReader() {}
    const std::shared_ptr<std::vector<char>>& getData() const { return data; }
    uint64_t getSize() const { return size; }

private:
    std::shared_ptr<std::vector<char>> data;
    uint64_t size = 0;
};

class DllResourceReader {
public:
    // location reads "TYPE|NAME"; copies the resource's bytes.  Throws VRNException when the module
    // carries no such resource.
    explicit DllResourceReader(const std::string& location);
    virtual ~DllResourceReader() {}
    const std::shared_ptr<std::vector<char>>& getData() const { return data; }
    uint64_t getSize() const { return size; }

private:
    std::shared_ptr<std::vector<char>> data;
    uint64_t size = 0;
};

}  // namespace vrn
