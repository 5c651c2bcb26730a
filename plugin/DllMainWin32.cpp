// Windows: the module's entry at load keeps the module's handle, where its resources are.
#ifdef _WIN32

#include <windows.h>

#include "engine/ModuleResources.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) vrn::setResourceModule(instance);
    return TRUE;
}

#endif
