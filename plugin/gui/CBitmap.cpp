#include "plugin/gui/CBitmap.h"

#include <vector>

#include "plugin/gui/Resources.h"

CBitmap::CBitmap(const CResourceDescription& description) {
    std::vector<unsigned char> bytes;
    if (loadPng(description.name, bytes)) picture = decodePng(bytes.data(), bytes.size());
}

void CBitmap::draw(DrawContext& context, const CRect& destination, const CPoint& offset) const {
    if (picture) context.drawBitmap(*picture, destination, offset);
}
