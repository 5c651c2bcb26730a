#include "plugin/gui/Resources.h"

#include "engine/ModuleResources.h"

bool loadPng(const std::string& fileName, std::vector<unsigned char>& bytes) {
    const unsigned char* data = nullptr;
    size_t size = 0;
    if (fileName.empty() || !vrn::findModuleResource(fileName, "PNG", data, size) || size == 0) return false;
    bytes.assign(data, data + size);
    return true;
}
