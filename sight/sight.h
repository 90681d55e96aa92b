// Korvane.Sight: every public header of the library.
#ifndef SIGHT_SIGHT_H_
#define SIGHT_SIGHT_H_

#include <sight/frame/bitmap.h>
#include <sight/frame/convert.h>
#include <sight/frame/field_views.h>
#include <sight/frame/io.h>
#include <sight/frame/message.h>
#include <sight/frame/pixel.h>
#include <sight/frame/rasterize.h>
#include <sight/frame/variables.h>
#include <sight/object_tracking/object_detected.h>

#endif  // SIGHT_SIGHT_H_
