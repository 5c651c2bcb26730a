// The module's entry: the host's first call, and the making of one effect instance.

#include <atomic>
#include <cstdint>
#include <memory>
#include <sstream>
#include <string>

#include "amp/OrmFactory.h"
#include "engine/DSPElementFactory.h"
#include "engine/Driver.h"
#include "plugin/DenormalGuard.h"
#include "plugin/OrmSystemDescription.h"
#include "plugin/OrmVST2Effect.h"

namespace {

std::shared_ptr<void> sharedHandle;
std::atomic<uint8_t> sharedHandleAlive{1};

}  // namespace

void releaseSharedHandle() {
    if (sharedHandle) {
        sharedHandleAlive.exchange(0);
        sharedHandle.reset();
    }
}

AudioEffect* createEffectInstance(audioMasterCallback audioMaster) {
    try {
        std::shared_ptr<vrn::Driver> driver = vrn::Driver::create();
        auto factory = std::make_shared<vrn::DSPElementFactory>();
        // The plug-in's own element types (wrapped filters, Newton) join the engine's table.
        factory->addFactory(std::make_shared<OrmFactory>());
        driver->setDSPElementFactory(factory);
        std::istringstream description(makeOrmSystemDescription());
        driver->init(description);
        return new OrmVST2Effect(audioMaster, driver);
    } catch (...) {
        releaseSharedHandle();
        throw;
    }
}

extern "C" {

// The elements are made in the plug-in's floating-point mode, and the host's thread gets its own
// mode back.  No exception reaches the host: an instance that cannot be made is a null answer.
__attribute__((visibility("default"))) AEffect* VSTPluginMain(audioMasterCallback audioMaster) {
    if (!audioMaster || audioMaster(nullptr, audioMasterVersion, 0, 0, nullptr, 0.0f) == 0) return nullptr;
    DenormalGuard mode;
    try {
        AudioEffect* effect = createEffectInstance(audioMaster);
        if (!effect) return nullptr;
        return effect->getAeffect();
    } catch (...) {
        return nullptr;
    }
}

// Older hosts look for the entry under the name "main": the same function under a second name.
// On Windows the module definition file (orm.def) exports it under both names; a program that
// links the plug-in in, such as the dispatcher's fuzz target, has a main of its own.
#if !defined(_WIN32) && !defined(ORM_NO_MAIN_ALIAS)
AEffect* ormMainAlias(audioMasterCallback audioMaster) __asm__("main")
    __attribute__((alias("VSTPluginMain"), visibility("default")));
#endif

}  // extern "C"
