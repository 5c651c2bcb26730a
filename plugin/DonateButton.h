#pragma once
// The button on the panel that opens the donation page.  It is no control of the system: it
// touches no parameter, and either of its two pictures opens the page.

#include <string>

#include "plugin/gui/Controls.h"

class DonateButton : public COnOffButton, private CControlListener {
public:
    explicit DonateButton(const std::string& url);

    const std::string& getUrl() const { return url; }

private:
    void valueChanged(CControl* control) override;

    std::string url;
};
