#pragma once
// The bytes the module carries, found by resource name and type.  One interface with one back-end
// per platform: on Linux tables compiled into the executable or module (generated from a manifest
// at build time by orm_embed_resources); on Windows the module's own resources.

#include <cstddef>
#include <string>

namespace vrn {

struct ModuleResource {
    const char* name;
    const char* type;
    const unsigned char* data;
    size_t size;
};

// Load time.  Names and types compare without regard to ASCII case, as the Windows resource
// functions do.  False when the module carries no such resource; data stays valid for the life
// of the module.
bool findModuleResource(const std::string& name, const std::string& type, const unsigned char*& data,
                        size_t& size);

// Linux back-end: a generated table enters itself here during static initialisation.
void registerModuleResources(const ModuleResource* table, size_t count);

#ifdef _WIN32
// Windows back-end: the module whose resources are read (an HMODULE), kept by the DLL's entry at
// load; until then the process's executable.
void setResourceModule(void* module);
void* getResourceModule();
#endif

}  // namespace vrn
