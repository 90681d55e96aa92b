// Writing bitmaps to image files, for debug pictures.
//
// The path is converted to UTF-8 and used as it stands: no separator is
// translated, so "d:\temp\x.png" names one file in the current directory on
// systems whose separator is '/'. The file type follows from the extension;
// ".png" (any case) is the type written, at a fast compression level.
// Returns false, printing and throwing nothing, when the path has another
// extension, the bitmap is empty, or the file cannot be created or written;
// a partly written file is removed.
#ifndef SIGHT_FRAME_IO_H_
#define SIGHT_FRAME_IO_H_

#include <sight/frame/bitmap.h>
#include <sight/frame/export.h>

namespace Tamarind::Rasters::io {

template <class Bitmap>
bool write(wchar_t const *path, Bitmap const &bitmap);

template <>
SIGHT_API bool write<bitmap<pixel_bgra_u8>>(wchar_t const *path,
                                            bitmap<pixel_bgra_u8> const &b);
template <>
SIGHT_API bool write<bitmap<pixel_bgr_u8>>(wchar_t const *path,
                                           bitmap<pixel_bgr_u8> const &b);

}  // namespace Tamarind::Rasters::io

#endif  // SIGHT_FRAME_IO_H_
