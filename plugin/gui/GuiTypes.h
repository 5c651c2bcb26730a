#pragma once
// Geometry and reference counting shared by the widget layer.

#include <algorithm>
#include <string>

struct CPoint {
    int x = 0, y = 0;
    CPoint() {}
    CPoint(int px, int py) : x(px), y(py) {}
};

struct CRect {
    int left = 0, top = 0, right = 0, bottom = 0;
    CRect() {}
    CRect(int l, int t, int r, int b) : left(l), top(t), right(r), bottom(b) {}
    int getWidth() const { return right - left; }
    int getHeight() const { return bottom - top; }
    bool isEmpty() const { return right <= left || bottom <= top; }
    bool pointInside(const CPoint& p) const { return p.x >= left && p.x < right && p.y >= top && p.y < bottom; }
    // Smallest rectangle holding both; an empty rectangle adds nothing.
    CRect& unite(const CRect& other) {
        if (other.isEmpty()) return *this;
        if (isEmpty()) return *this = other;
        left = std::min(left, other.left);
        top = std::min(top, other.top);
        right = std::max(right, other.right);
        bottom = std::max(bottom, other.bottom);
        return *this;
    }
    CRect intersection(const CRect& other) const {
        CRect r(std::max(left, other.left), std::max(top, other.top), std::min(right, other.right),
                std::min(bottom, other.bottom));
        return r.isEmpty() ? CRect() : r;
    }
};

// Intrusive count: an object starts with one reference held by its creator; remember() adds
// one, forget() drops one and deletes the object at zero.  GUI thread only.
class CBaseObject {
public:
    CBaseObject() {}
    CBaseObject(const CBaseObject&) = delete;
    CBaseObject& operator=(const CBaseObject&) = delete;
    virtual ~CBaseObject() {}
    void remember() { ++references; }
    void forget() {
        if (--references == 0) delete this;
    }
    int getNbReference() const { return references; }

private:
    int references = 1;
};

// A picture named by its file name, found among the module's PNG resources.
struct CResourceDescription {
    std::string name;
    CResourceDescription(const char* fileName) : name(fileName) {}
    CResourceDescription(const std::string& fileName) : name(fileName) {}
};

// Mouse buttons and modifiers as the widgets see them.
enum CButtonState { kLButton = 1, kMButton = 2, kRButton = 4, kShift = 8, kControl = 16 };
