// The vector shapes behind the face masks. Everything is given in image pixels; the painter carries
// the scale to the drawing canvas, and `unit` (canvas pixels per image pixel) sizes the lines that
// are defined in canvas pixels.
#pragma once

#include <QPainter>

#include "FaceMaskDrawing.h"
#include "vision/FaceShape.h"

namespace ql::FaceParts::detail {

/// The face with every unusable coordinate made harmless: a region holding a non-finite point is
/// dropped, far-off points are pulled to within `limit` pixels of the picture, a box that is not
/// finite becomes empty, a pupil that is not finite is forgotten.
vision::FaceShape sanitised(const vision::FaceShape& face, double limit);

/// One part of one face, white on black.
void paintPart(QPainter& p, Part part, const vision::FaceShape& face, double unit);

/// Red the core hair zone above the brows, green the wide zone around the head.
void paintHairZones(QPainter& p, const vision::FaceShape& face);

/// Soft highlights in red and shadows in green, added to what is there.
void paintSculpt(QPainter& p, const vision::FaceShape& face);

/// The soft disc of one face box, lightening what is there.
void paintSkinDisc(QPainter& p, const vision::Rect& box);

}  // namespace ql::FaceParts::detail
