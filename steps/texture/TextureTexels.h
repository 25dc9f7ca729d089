#pragma once

#include "document/WImg.h"

namespace WelkPlugin {

/// Texels a projection reached: the opaque ones of an image with alpha,
/// every texel of one without.
long long reachedTexelCount(const Welk::WImg& image);

/// True for an image with alpha in which some texels were reached and some
/// were not: the only kind a fill can work on (a grey result has no alpha
/// to tell empty texels by).
bool canFillEmptyTexels(const Welk::WImg& image);

/// The rows in reverse order, attributes kept. Files whose texture
/// coordinates count v from the top of the image (GoZ) are worked on
/// through this, once on the way in and once on the way out.
Welk::WImg flippedVertically(const Welk::WImg& image);

} // namespace WelkPlugin
