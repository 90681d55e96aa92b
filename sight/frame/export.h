// The one export macro of the library. The shared object is built with hidden
// visibility, so only what carries SIGHT_API (and what the linker version script
// keeps) reaches its dynamic symbol table.
#ifndef SIGHT_FRAME_EXPORT_H_
#define SIGHT_FRAME_EXPORT_H_

#define SIGHT_API __attribute__((visibility("default")))

#endif  // SIGHT_FRAME_EXPORT_H_
