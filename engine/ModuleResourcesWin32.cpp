// Windows back-end of the module resources: the resources windres compiled into the module, found
// on the module's handle.  Windows compares resource names and types without regard to case.
#ifdef _WIN32

#include <windows.h>

#include "engine/ModuleResources.h"

namespace vrn {

namespace {

HMODULE resourceModule = nullptr;

// Names are ASCII; anything else cannot name one of our resources.
bool widen(const std::string& text, std::wstring& wide) {
    wide.clear();
    for (char c : text) {
        if (static_cast<unsigned char>(c) >= 0x80 || c == '\0') return false;
        wide.push_back(static_cast<wchar_t>(c));
    }
    // A leading '#' would ask for a numbered resource.
    return !wide.empty() && wide[0] != L'#';
}

}  // namespace

void setResourceModule(void* module) { resourceModule = static_cast<HMODULE>(module); }

void* getResourceModule() { return resourceModule ? resourceModule : GetModuleHandleW(nullptr); }

// The module's resources are found where they are; there is no table to register.
void registerModuleResources(const ModuleResource*, size_t) {}

bool findModuleResource(const std::string& name, const std::string& type, const unsigned char*& data,
                        size_t& size) {
    std::wstring wideName, wideType;
    if (!widen(name, wideName) || !widen(type, wideType)) return false;
    HMODULE module = static_cast<HMODULE>(getResourceModule());
    HRSRC found = FindResourceW(module, wideName.c_str(), wideType.c_str());
    if (!found) return false;
    HGLOBAL loaded = LoadResource(module, found);
    if (!loaded) return false;
    const void* bytes = LockResource(loaded);
    if (!bytes) return false;
    data = static_cast<const unsigned char*>(bytes);
    size = SizeofResource(module, found);
    return true;
}

}  // namespace vrn

#endif
