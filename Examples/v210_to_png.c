/*
 * Converts a frame of 10-bit 4:2:2 video into a picture that any viewer opens.
 *
 *   example_v210_to_png frame.v210 1920 1080 frame.png
 *
 * The library converts v210 to 2vuy and that to RGBA; libpng writes the file:
 *   cc -std=c11 v210_to_png.c $(pkg-config --cflags --libs KIVCoreServices2 libpng)
 *
 * The library converts with the matrix of standard definition and averages the last pixel of a line with
 * chroma 0. `kivcs2 frame png` works around both.
 */
#include <KIVCoreServices2/KIVCoreServices2.h>

#include <png.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define MOST_PIXELS 16384

/* Capture cards store v210 in groups of 48 pixels, 128 bytes each. */
static size_t v210_row_bytes(size_t width)
{
    return (width + 47) / 48 * 128;
}

/* Reads the first frame of the file into the buffer, whose rows may have more padding than the file's. */
static int read_frame(const char *path, CVPixelBufferRef buffer)
{
    const size_t height = CVPixelBufferGetHeight(buffer);
    const size_t row_bytes = v210_row_bytes(CVPixelBufferGetWidth(buffer));
    size_t rows = 0;
    uint8_t *row;
    FILE *file = fopen(path, "rb");

    if (file == NULL)
    {
        perror(path);
        return 1;
    }
    CVPixelBufferLockBaseAddress(buffer, 0);
    row = CVPixelBufferGetBaseAddress(buffer);
    while (rows < height && fread(row, row_bytes, 1, file) == 1)
    {
        row += CVPixelBufferGetBytesPerRow(buffer);
        ++rows;
    }
    CVPixelBufferUnlockBaseAddress(buffer, 0);
    fclose(file);
    if (rows < height)
        fprintf(stderr, "v210_to_png: %s: ends after %zu of %zu rows\n", path, rows, height);
    return rows < height;
}

static KIVCS2Status to_rgba(CVPixelBufferRef v210, CVPixelBufferRef *rgba)
{
    CVPixelBufferRef yuv = NULL;
    KIVCS2Status status = kivCS2PixelBuffer_convert(v210, &yuv, KIVCS2PixelBuffer_ConvertV210To2vuy);

    if (KIVCS2_SUCCEEDED(status))
        status = kivCS2PixelBuffer_convert(yuv, rgba, KIVCS2PixelBuffer_Convert2vuyToRGBA);
    CVPixelBufferRelease(yuv); /* NULL is ignored */
    return status;
}

static int write_png(const char *path, CVPixelBufferRef rgba)
{
    png_image image;
    int written;

    memset(&image, 0, sizeof image);
    image.version = PNG_IMAGE_VERSION;
    image.width = (png_uint_32)CVPixelBufferGetWidth(rgba);
    image.height = (png_uint_32)CVPixelBufferGetHeight(rgba);
    image.format = PNG_FORMAT_RGBA;
    CVPixelBufferLockBaseAddress(rgba, 0);
    written = png_image_write_to_file(&image, path, 0, CVPixelBufferGetBaseAddress(rgba),
                                      (png_int_32)CVPixelBufferGetBytesPerRow(rgba), NULL);
    CVPixelBufferUnlockBaseAddress(rgba, 0);
    if (!written)
        fprintf(stderr, "v210_to_png: %s: %s\n", path, image.message);
    return !written;
}

int main(int argc, char **argv)
{
    CVPixelBufferRef v210 = NULL, rgba = NULL;
    unsigned long width = argc == 5 ? strtoul(argv[2], NULL, 10) : 0;
    unsigned long height = argc == 5 ? strtoul(argv[3], NULL, 10) : 0;
    KIVCS2Status status;
    int failed;

    if (width == 0 || width > MOST_PIXELS || height == 0 || height > MOST_PIXELS)
    {
        fputs("usage: example_v210_to_png frame.v210 width height frame.png\n", stderr);
        return 2;
    }
    kivCS2_initWithTaskServer(false); /* always succeeds; no child processes here */
    if (CVPixelBufferCreate(NULL, width, height, kCVPixelFormatType_422YpCbCr10, NULL, &v210) !=
        kCVReturnSuccess)
    {
        fputs("v210_to_png: no memory for the frame\n", stderr);
        return 1;
    }
    failed = read_frame(argv[1], v210);
    if (!failed)
    {
        status = to_rgba(v210, &rgba);
        if (KIVCS2_FAILED(status))
            fprintf(stderr, "v210_to_png: converting (status 0x%08x)\n", status);
        failed = KIVCS2_FAILED(status) || write_png(argv[4], rgba);
    }
    CVPixelBufferRelease(rgba);
    CVPixelBufferRelease(v210);
    return failed;
}
