// PNG and JPEG through libpng and libjpeg-turbo: the Linux build's codecs.
#include <csetjmp>
#include <cstdio>
#include <vector>

#include <jpeglib.h>
#include <png.h>

#include "image_codecs.h"

namespace VantyxTool {

namespace {

// ---- PNG --------------------------------------------------------------------------------------
// libpng reports errors by longjmp to the setjmp of the function that drives it. The functions
// that call setjmp below hold only trivially destructible locals, and every C++ object they use
// belongs to their caller, so no destructor is skipped by the jump.

struct PngErrors {
  char message[256];
};

[[noreturn]] void PngError(png_structp png, png_const_charp message) {
  PngErrors* errors = static_cast<PngErrors*>(png_get_error_ptr(png));
  std::snprintf(errors->message, sizeof(errors->message), "%s", message);
  png_longjmp(png, 1);
}

void PngWarning(png_structp, png_const_charp) {}  // harmless chunk complaints stay quiet

struct PngHeader {
  uint32_t width;
  uint32_t height;
  bool has_alpha;
};

bool PngReadHeader(png_structp png, png_infop info, FILE* file, PngHeader* header) {
  if (setjmp(png_jmpbuf(png))) return false;
  png_init_io(png, file);
  png_read_info(png, info);
  const int colour = png_get_color_type(png, info);
  const int depth = png_get_bit_depth(png, info);
  const bool trns = png_get_valid(png, info, PNG_INFO_tRNS) != 0;
  header->width = png_get_image_width(png, info);
  header->height = png_get_image_height(png, info);
  header->has_alpha = (colour & PNG_COLOR_MASK_ALPHA) != 0 || trns;
  // Bytes as stored: no gamma or colour-profile conversion, so a picture and the same frame
  // piped as raw video give the same pixels.
  if (depth == 16) png_set_scale_16(png);
  if (colour == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(png);
  if (colour == PNG_COLOR_TYPE_GRAY && depth < 8) png_set_expand_gray_1_2_4_to_8(png);
  if (trns) png_set_tRNS_to_alpha(png);
  if (colour == PNG_COLOR_TYPE_GRAY || colour == PNG_COLOR_TYPE_GRAY_ALPHA) {
    png_set_gray_to_rgb(png);
  }
  png_set_bgr(png);
  if (!header->has_alpha) png_set_filler(png, 0xFF, PNG_FILLER_AFTER);
  png_set_interlace_handling(png);
  png_read_update_info(png, info);
  if (png_get_rowbytes(png, info) != size_t(header->width) * 4) {
    std::snprintf(static_cast<PngErrors*>(png_get_error_ptr(png))->message,
                  sizeof(PngErrors::message), "unexpected row layout");
    return false;
  }
  return true;
}

bool PngReadRows(png_structp png, png_infop info, png_bytepp rows) {
  if (setjmp(png_jmpbuf(png))) return false;
  png_read_image(png, rows);
  png_read_end(png, info);
  return true;
}

}  // namespace

bool ReadPng(FILE* file, const std::string& path, Image* image, std::string* error) {
  PngErrors errors{};
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &errors, PngError, PngWarning);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  if (!png || !info) {
    png_destroy_read_struct(&png, &info, nullptr);
    *error = "out of memory reading " + Quoted(path);
    return false;
  }
  PngHeader header{};
  bool ok = PngReadHeader(png, info, file, &header);
  if (ok) {
    ok = CheckSize(header.width, header.height, path, error);
    if (ok) {
      image->width = int32_t(header.width);
      image->height = int32_t(header.height);
      image->has_alpha = header.has_alpha;
      image->bgra.assign(size_t(header.width) * header.height * 4, 0);
      std::vector<png_bytep> rows(header.height);
      for (uint32_t y = 0; y < header.height; ++y) {
        rows[y] = image->bgra.data() + size_t(y) * header.width * 4;
      }
      ok = PngReadRows(png, info, rows.data());
      if (!ok) {
        *error = Quoted(path) + ": corrupt PNG file (" +
                 (std::feof(file) ? "it ends too early" : errors.message) + ")";
      }
    }
  } else {
    *error = Quoted(path) + ": corrupt PNG file (" +
             (std::feof(file) ? "it ends too early" : errors.message) + ")";
  }
  png_destroy_read_struct(&png, &info, nullptr);
  return ok;
}

namespace {

bool PngWriteAll(png_structp png, png_infop info, FILE* file, uint32_t width, uint32_t height,
                 bool alpha, png_bytepp rows) {
  if (setjmp(png_jmpbuf(png))) return false;
  png_init_io(png, file);
  png_set_IHDR(png, info, width, height, 8, alpha ? PNG_COLOR_TYPE_RGB_ALPHA : PNG_COLOR_TYPE_RGB,
               PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  png_set_bgr(png);
  if (!alpha) png_set_filler(png, 0, PNG_FILLER_AFTER);  // drops the fourth byte
  png_write_image(png, rows);
  png_write_end(png, nullptr);
  return true;
}

}  // namespace

bool WritePng(FILE* file, const Image& image, std::string* error) {
  PngErrors errors{};
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &errors, PngError, PngWarning);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  if (!png || !info) {
    png_destroy_write_struct(&png, &info);
    *error = "out of memory writing a PNG file";
    return false;
  }
  std::vector<png_bytep> rows(size_t(image.height));
  for (int32_t y = 0; y < image.height; ++y) {
    rows[size_t(y)] = const_cast<png_bytep>(image.bgra.data()) + size_t(y) * image.width * 4;
  }
  const bool ok = PngWriteAll(png, info, file, uint32_t(image.width), uint32_t(image.height),
                              image.has_alpha, rows.data());
  if (!ok) *error = std::string("PNG encoder: ") + errors.message;
  png_destroy_write_struct(&png, &info);
  return ok;
}

namespace {

// ---- JPEG -------------------------------------------------------------------------------------
// Same pattern with libjpeg's error manager. Its warnings (a file cut short, corrupt data) are
// treated as errors: the decoder would otherwise hand back grey rows in place of the missing data.

struct JpegErrors {
  jpeg_error_mgr manager;
  jmp_buf jump;
  char message[JMSG_LENGTH_MAX];
};

[[noreturn]] void JpegErrorExit(j_common_ptr cinfo) {
  JpegErrors* errors = reinterpret_cast<JpegErrors*>(cinfo->err);
  cinfo->err->format_message(cinfo, errors->message);
  std::longjmp(errors->jump, 1);
}

void JpegEmitMessage(j_common_ptr cinfo, int level) {
  if (level < 0) JpegErrorExit(cinfo);  // a warning; trace messages (level >= 0) stay quiet
}

JpegErrors* InitJpegErrors(JpegErrors* errors) {
  jpeg_std_error(&errors->manager);
  errors->manager.error_exit = JpegErrorExit;
  errors->manager.emit_message = JpegEmitMessage;
  errors->message[0] = '\0';
  return errors;
}

bool JpegReadHeader(jpeg_decompress_struct* cinfo, JpegErrors* errors, FILE* file,
                    uint32_t* width, uint32_t* height) {
  if (setjmp(errors->jump)) return false;
  jpeg_stdio_src(cinfo, file);
  jpeg_read_header(cinfo, TRUE);
  if (cinfo->jpeg_color_space == JCS_CMYK || cinfo->jpeg_color_space == JCS_YCCK) {
    std::snprintf(errors->message, sizeof(errors->message), "CMYK JPEG files are not supported");
    return false;
  }
  cinfo->out_color_space = JCS_EXT_BGRA;  // alpha 255
  jpeg_calc_output_dimensions(cinfo);
  *width = cinfo->output_width;
  *height = cinfo->output_height;
  return true;
}

bool JpegReadRows(jpeg_decompress_struct* cinfo, JpegErrors* errors, uint8_t* pixels) {
  if (setjmp(errors->jump)) return false;
  jpeg_start_decompress(cinfo);
  const size_t stride = size_t(cinfo->output_width) * 4;
  while (cinfo->output_scanline < cinfo->output_height) {
    JSAMPROW row = pixels + size_t(cinfo->output_scanline) * stride;
    jpeg_read_scanlines(cinfo, &row, 1);
  }
  jpeg_finish_decompress(cinfo);
  return true;
}

}  // namespace

bool ReadJpeg(FILE* file, const std::string& path, Image* image, std::string* error) {
  jpeg_decompress_struct cinfo;
  JpegErrors errors;
  cinfo.err = &InitJpegErrors(&errors)->manager;
  jpeg_create_decompress(&cinfo);
  uint32_t width = 0, height = 0;
  bool ok = JpegReadHeader(&cinfo, &errors, file, &width, &height);
  if (ok) {
    ok = CheckSize(width, height, path, error);
    if (ok) {
      image->width = int32_t(width);
      image->height = int32_t(height);
      image->has_alpha = false;
      image->bgra.assign(size_t(width) * height * 4, 0);
      ok = JpegReadRows(&cinfo, &errors, image->bgra.data());
      if (!ok) *error = Quoted(path) + ": corrupt JPEG file (" + errors.message + ")";
    }
  } else {
    *error = Quoted(path) + ": corrupt JPEG file (" + errors.message + ")";
  }
  jpeg_destroy_decompress(&cinfo);
  return ok;
}

namespace {

bool JpegWriteAll(jpeg_compress_struct* cinfo, JpegErrors* errors, FILE* file,
                  const Image* image, int32_t quality) {
  if (setjmp(errors->jump)) return false;
  jpeg_stdio_dest(cinfo, file);
  cinfo->image_width = JDIMENSION(image->width);
  cinfo->image_height = JDIMENSION(image->height);
  cinfo->input_components = 4;
  cinfo->in_color_space = JCS_EXT_BGRA;  // the fourth byte is ignored
  jpeg_set_defaults(cinfo);
  jpeg_set_quality(cinfo, quality, TRUE);
  jpeg_start_compress(cinfo, TRUE);
  const size_t stride = size_t(image->width) * 4;
  while (cinfo->next_scanline < cinfo->image_height) {
    JSAMPROW row = const_cast<JSAMPROW>(image->bgra.data() + size_t(cinfo->next_scanline) * stride);
    jpeg_write_scanlines(cinfo, &row, 1);
  }
  jpeg_finish_compress(cinfo);
  return true;
}

}  // namespace

bool WriteJpeg(FILE* file, const Image& image, int32_t quality, std::string* error) {
  jpeg_compress_struct cinfo;
  JpegErrors errors;
  cinfo.err = &InitJpegErrors(&errors)->manager;
  jpeg_create_compress(&cinfo);
  const bool ok = JpegWriteAll(&cinfo, &errors, file, &image, quality);
  if (!ok) *error = std::string("JPEG encoder: ") + errors.message;
  jpeg_destroy_compress(&cinfo);
  return ok;
}

}  // namespace VantyxTool
