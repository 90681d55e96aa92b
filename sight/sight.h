// Korvane.Sight: every public header of the library.
#ifndef SIGHT_SIGHT_H_
#define SIGHT_SIGHT_H_

// Pixel layer: bitmaps, pixel types, lines, conversion, PNG output,
// messages and their field views, GPU variables.
#include <sight/frame/bitmap.h>
#include <sight/frame/convert.h>
#include <sight/frame/field_views.h>
#include <sight/frame/io.h>
#include <sight/frame/message.h>
#include <sight/frame/pixel.h>
#include <sight/frame/rasterize.h>
#include <sight/frame/variables.h>

// What the operators share: the layouts, the found/not-found values, the
// colour matrix.
#include <sight/operator/color_matrix.h>
#include <sight/operator/layouts.h>
#include <sight/operator/object_detected.h>
#include <sight/operator/rgb_color.h>

// Operators.
#include <sight/color_matching/color_matching.h>
#include <sight/corner/detection.h>
#include <sight/corner/threshold.h>
#include <sight/hot_spots/hot_spots.h>
#include <sight/hot_spots/hot_spots_data.h>
#include <sight/hot_spots/hot_spots_info.h>
#include <sight/motion/estimation.h>
#include <sight/object_tracking/object_tracking.h>
#include <sight/object_tracking/object_tracking_data.h>
#include <sight/object_tracking/object_tracking_info.h>
#include <sight/object_tracking_2/object_tracking_2.h>
#include <sight/object_tracking_2/object_tracking_2_data.h>
#include <sight/object_tracking_2/object_tracking_2_info.h>
#include <sight/perspective/perspective.h>
#include <sight/super_resolution/y_x2.h>

#endif  // SIGHT_SIGHT_H_
