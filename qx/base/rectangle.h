// rectangle.h - four edges in whole units.
#pragma once

namespace QX {

// `right` and `bottom` are exclusive where a size is meant: width is right - left.
struct Rectangle {
    int left = 0;
    int top = 0;
    int right = 0;
    int bottom = 0;
};

}  // namespace QX
