#include "engine/ModuleResources.h"

// The Windows back-end (FindResourceW on the module's handle) lives in its own file.
#ifndef _WIN32

#include <utility>
#include <vector>

namespace vrn {

namespace {

std::vector<std::pair<const ModuleResource*, size_t>>& tables() {
    static std::vector<std::pair<const ModuleResource*, size_t>> registered;
    return registered;
}

bool sameText(const char* a, const std::string& b) {
    size_t i = 0;
    for (; a[i] != '\0'; ++i) {
        if (i >= b.size()) return false;
        char x = a[i], y = b[i];
        if (x >= 'a' && x <= 'z') x = static_cast<char>(x - 'a' + 'A');
        if (y >= 'a' && y <= 'z') y = static_cast<char>(y - 'a' + 'A');
        if (x != y) return false;
    }
    return i == b.size();
}

}  // namespace

void registerModuleResources(const ModuleResource* table, size_t count) {
    if (table && count) tables().emplace_back(table, count);
}

bool findModuleResource(const std::string& name, const std::string& type, const unsigned char*& data,
                        size_t& size) {
    for (const auto& table : tables())
        for (size_t i = 0; i < table.second; ++i) {
            const ModuleResource& entry = table.first[i];
            if (sameText(entry.name, name) && sameText(entry.type, type)) {
                data = entry.data;
                size = entry.size;
                return true;
            }
        }
    return false;
}

}  // namespace vrn

#endif
