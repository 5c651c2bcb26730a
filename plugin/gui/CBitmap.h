#pragma once
// A picture from the module's resources.  A missing or unreadable picture gives a bitmap of
// size 0 that draws nothing.

#include <memory>

#include "plugin/gui/GuiTypes.h"
#include "plugin/gui/Platform.h"

class CBitmap : public CBaseObject {
public:
    // GUI thread; decodes the picture.
    explicit CBitmap(const CResourceDescription& description);

    int getWidth() const { return picture ? picture->getWidth() : 0; }
    int getHeight() const { return picture ? picture->getHeight() : 0; }
    const PlatformBitmap* getPlatformBitmap() const { return picture.get(); }
    // Draws the part of the picture at `offset` into `destination`.
    void draw(DrawContext& context, const CRect& destination, const CPoint& offset = CPoint()) const;

private:
    std::shared_ptr<PlatformBitmap> picture;
};
