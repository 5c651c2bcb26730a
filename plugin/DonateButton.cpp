#include "plugin/DonateButton.h"

#include "plugin/gui/OpenUrl.h"

DonateButton::DonateButton(const std::string& pageUrl) : COnOffButton(CRect(), nullptr, -1, nullptr), url(pageUrl) {
    CBitmap* picture = new CBitmap("donate.png");
    // One of the picture's two frames, above the output knob.
    CRect place(454, 237, 454 + picture->getWidth(), 237 + picture->getHeight() / 2);
    setViewSize(place);
    setMouseableArea(place);
    setBackground(picture);
    picture->forget();
    setListener(this);
}

void DonateButton::valueChanged(CControl*) { openUrl(url); }
