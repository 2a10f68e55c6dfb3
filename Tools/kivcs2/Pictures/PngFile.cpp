// PNG by libpng's one-call form, which reports failures instead of jumping over C++ frames.
#include "Pictures/PngFile.h"

#include "Failure.h"
#include "Files/Files.h"

#include <png.h>
#include <unistd.h>

#include <limits>

namespace tool
{

void writePNG(const std::string &target, const PictureView &picture)
{
    if (target == "-" && ::isatty(STDOUT_FILENO) != 0)
        throw Failure(kExitUsage, "standard output is a terminal; name a file for the picture");
    // The stride counts bytes in 31 bits.
    if (picture.width == 0 || picture.height == 0 ||
        picture.rowBytes > static_cast<size_t>(std::numeric_limits<png_int_32>::max()))
        throw Failure(kExitNotHere, Where{target}, "a PNG cannot have this size");

    OutputFile file{target}; // before the work: a missing folder is reported at once
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = picture.width;
    image.height = picture.height;
    image.format = picture.channels == 4 ? PNG_FORMAT_RGBA : PNG_FORMAT_RGB;
    // Room for incompressible pixels.
    std::vector<uint8_t> bytes(PNG_IMAGE_PNG_SIZE_MAX(image));
    png_alloc_size_t size = bytes.size();
    if (png_image_write_to_memory(&image, bytes.data(), &size, 0, picture.pixels,
                                  static_cast<png_int_32>(picture.rowBytes), nullptr) == 0)
        throw Failure(kExitNotHere, Where{target}, image.message);
    file.write({bytes.data(), size});
    file.commit();
}

} // namespace tool
