#include "plugin/gui/AEffGUIEditor.h"

#include "plugin/gui/OpenUrl.h"

AEffGUIEditor::AEffGUIEditor(EditorHost* owner)
    : AEffEditor(owner ? owner->getAudioEffect() : nullptr), host(owner) {}

AEffGUIEditor::~AEffGUIEditor() { AEffGUIEditor::close(); }

bool AEffGUIEditor::getRect(ERect** result) {
    *result = &rect;
    return true;
}

bool AEffGUIEditor::open(void* parent) {
    systemWindow = parent;
    return true;
}

void AEffGUIEditor::close() {
    CFrame* old = frame;
    frame = nullptr;
    if (old) old->forget();
    systemWindow = nullptr;
}

void AEffGUIEditor::idle() {
    if (frame) frame->idle();
    collectUrlOpeners();
}

bool AEffGUIEditor::setKnobMode(int mode) {
    knobMode = mode;
    return true;
}

void AEffGUIEditor::beginEdit(int index) {
    if (host && index >= 0) host->beginEdit(index);
}

void AEffGUIEditor::endEdit(int index) {
    if (host && index >= 0) host->endEdit(index);
}
