#include "ports/linux/image_codec.h"

#include <algorithm>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <exception>
#include <new>

// jpeglib.h needs FILE and size_t declared first.
#include <jpeglib.h>
#include <jerror.h>
#include <png.h>

namespace mirelo::linuxport {

namespace {

// Progressive JPEGs with very many scans cost a full pass each; a hostile
// file can carry thousands.  Real encoders write about a dozen.
constexpr int kMaxJpegScans = 500;

bool withinLimits(std::uint64_t width, std::uint64_t height) {
  return width <= static_cast<std::uint64_t>(kMaxImageDimension) &&
         height <= static_cast<std::uint64_t>(kMaxImageDimension) && width * height <= kMaxImagePixels;
}

// Whether `size` bytes could hold width x height pixels at `perByte` pixels
// a byte (only called once withinLimits holds, so nothing overflows).
bool heldBy(std::uint64_t width, std::uint64_t height, std::size_t size, std::uint64_t perByte) {
  return width * height <= static_cast<std::uint64_t>(size) * perByte;
}

// ---- libjpeg plumbing ------------------------------------------------------

// Errors jump back to the setjmp of the call under way instead of exiting;
// messages are never printed.
struct JpegError {
  jpeg_error_mgr pub;
  std::jmp_buf jump;
  bool prematureEnd;
};

[[noreturn]] void jpegErrorExit(j_common_ptr cinfo) {
  std::longjmp(reinterpret_cast<JpegError*>(cinfo->err)->jump, 1);
}

void jpegEmitMessage(j_common_ptr cinfo, int level) {
  // Level -1 is a warning about the data.  Running out of input is one of
  // them: libjpeg then pads the image with grey, which would hide a
  // truncated file, so it counts as a failure.
  if (level < 0 && cinfo->err->msg_code == JWRN_JPEG_EOF) {
    reinterpret_cast<JpegError*>(cinfo->err)->prematureEnd = true;
  }
}

void jpegOutputMessage(j_common_ptr) {}

void installJpegError(JpegError& err) {
  jpeg_std_error(&err.pub);
  err.pub.error_exit = jpegErrorExit;
  err.pub.emit_message = jpegEmitMessage;
  err.pub.output_message = jpegOutputMessage;
  err.prematureEnd = false;
}

void failJpeg(j_common_ptr cinfo, int code) {
  cinfo->err->msg_code = code;
  cinfo->err->error_exit(cinfo);
}

void jpegProgress(j_common_ptr cinfo) {
  if (!cinfo->is_decompressor) return;
  if (reinterpret_cast<j_decompress_ptr>(cinfo)->input_scan_number > kMaxJpegScans) {
    failJpeg(cinfo, JERR_NOT_COMPILED);
  }
}

// A JPEG destination that appends to a vector owned by the caller (outside
// the setjmp frame, so a jump never skips its destructor).
struct VectorDestination {
  jpeg_destination_mgr pub;
  std::vector<std::uint8_t>* out;
};

constexpr std::size_t kDestinationChunk = 16384;

// Resizes without letting an exception out (it must not cross libjpeg's C
// frames); the caller turns false into a libjpeg error after the handler.
bool growTo(std::vector<std::uint8_t>* out, std::size_t size) {
  try {
    out->resize(size);
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

void destInit(j_compress_ptr cinfo) {
  auto* dest = reinterpret_cast<VectorDestination*>(cinfo->dest);
  if (!growTo(dest->out, kDestinationChunk)) failJpeg(reinterpret_cast<j_common_ptr>(cinfo), JERR_OUT_OF_MEMORY);
  dest->pub.next_output_byte = dest->out->data();
  dest->pub.free_in_buffer = dest->out->size();
}

boolean destEmpty(j_compress_ptr cinfo) {
  auto* dest = reinterpret_cast<VectorDestination*>(cinfo->dest);
  // libjpeg calls this only when the whole buffer is full.
  const std::size_t used = dest->out->size();
  if (!growTo(dest->out, used * 2)) failJpeg(reinterpret_cast<j_common_ptr>(cinfo), JERR_OUT_OF_MEMORY);
  dest->pub.next_output_byte = dest->out->data() + used;
  dest->pub.free_in_buffer = dest->out->size() - used;
  return TRUE;
}

void destTerm(j_compress_ptr cinfo) {
  auto* dest = reinterpret_cast<VectorDestination*>(cinfo->dest);
  dest->out->resize(dest->out->size() - dest->pub.free_in_buffer);
}

int jpegQuality(double quality) {
  if (!(quality >= 0.0)) quality = 0.0;  // also NaN
  if (quality > 1.0) quality = 1.0;
  const int q = static_cast<int>(quality * 100.0 + 0.5);
  return q < 1 ? 1 : (q > 100 ? 100 : q);
}

// Encodes RGBA rows into `out`.  Only C objects live in this frame, so the
// jump back from an error skips no destructor.
bool encodeJpegGuarded(const Bitmap& image, int quality, std::vector<std::uint8_t>* out) {
  jpeg_compress_struct cinfo;
  JpegError err;
  VectorDestination dest;
  std::memset(&cinfo, 0, sizeof cinfo);
  installJpegError(err);
  cinfo.err = &err.pub;
  if (setjmp(err.jump)) {
    jpeg_destroy_compress(&cinfo);
    return false;
  }
  jpeg_create_compress(&cinfo);
  dest.pub.init_destination = destInit;
  dest.pub.empty_output_buffer = destEmpty;
  dest.pub.term_destination = destTerm;
  dest.out = out;
  cinfo.dest = &dest.pub;
  cinfo.image_width = static_cast<JDIMENSION>(image.width());
  cinfo.image_height = static_cast<JDIMENSION>(image.height());
  cinfo.input_components = 4;
  cinfo.in_color_space = JCS_EXT_RGBA;
  jpeg_set_defaults(&cinfo);
  jpeg_set_quality(&cinfo, quality, TRUE);
  jpeg_start_compress(&cinfo, TRUE);
  const std::uint8_t* base = image.pixels().data();
  const std::size_t stride = static_cast<std::size_t>(image.width()) * 4;
  while (cinfo.next_scanline < cinfo.image_height) {
    // libjpeg takes non-const rows but only reads them.
    JSAMPROW row = const_cast<JSAMPROW>(base + stride * cinfo.next_scanline);
    jpeg_write_scanlines(&cinfo, &row, 1);
  }
  jpeg_finish_compress(&cinfo);
  jpeg_destroy_compress(&cinfo);
  return true;
}

struct DecodedSize {
  int width = 0;
  int height = 0;
};

// Decodes a JPEG into RGBA `pixels` (owned by the caller).
bool decodeJpegGuarded(const std::uint8_t* bytes, std::size_t size, std::vector<std::uint8_t>* pixels,
                       DecodedSize* decoded) {
  jpeg_decompress_struct cinfo;
  JpegError err;
  jpeg_progress_mgr progress;
  std::memset(&cinfo, 0, sizeof cinfo);
  installJpegError(err);
  cinfo.err = &err.pub;
  if (setjmp(err.jump)) {
    jpeg_destroy_decompress(&cinfo);
    return false;
  }
  jpeg_create_decompress(&cinfo);
  progress.progress_monitor = jpegProgress;
  cinfo.progress = &progress;
  jpeg_mem_src(&cinfo, bytes, static_cast<unsigned long>(size));
  jpeg_read_header(&cinfo, TRUE);
  if (err.prematureEnd || !withinLimits(cinfo.image_width, cinfo.image_height) || cinfo.image_width == 0 ||
      cinfo.image_height == 0 ||
      (!cinfo.arith_code && !heldBy(cinfo.image_width, cinfo.image_height, size, kMaxJpegPixelsPerByte))) {
    jpeg_destroy_decompress(&cinfo);
    return false;
  }
  // Without a backing store, libjpeg fails where it would need more than
  // this (a progressive file's coefficients, for one) instead of
  // allocating it.
  cinfo.mem->max_memory_to_use =
      static_cast<long>(kMaxJpegWorkingBytes + kJpegWorkingBytesPerByte * static_cast<std::uint64_t>(size));
  const bool cmyk = cinfo.jpeg_color_space == JCS_CMYK || cinfo.jpeg_color_space == JCS_YCCK;
  cinfo.out_color_space = cmyk ? JCS_CMYK : JCS_EXT_RGBA;
  jpeg_start_decompress(&cinfo);
  const std::size_t width = cinfo.output_width;
  const std::size_t height = cinfo.output_height;
  if (!withinLimits(width, height) || cinfo.output_components != 4) {
    jpeg_destroy_decompress(&cinfo);
    return false;
  }
  // Rows are stored as they decode, so a file that ends early never gets
  // the whole picture's memory.
  const std::size_t stride = width * 4;
  try {
    pixels->reserve(std::min<std::size_t>(stride * height, std::size_t{1} << 20));
    while (cinfo.output_scanline < cinfo.output_height && !err.prematureEnd) {
      pixels->resize(pixels->size() + stride);
      JSAMPROW row = pixels->data() + stride * cinfo.output_scanline;
      if (jpeg_read_scanlines(&cinfo, &row, 1) != 1) err.prematureEnd = true;
    }
  } catch (const std::bad_alloc&) {
    jpeg_destroy_decompress(&cinfo);
    return false;
  }
  if (err.prematureEnd) {
    jpeg_destroy_decompress(&cinfo);
    return false;
  }
  // Adobe writes CMYK inverted (0 is full ink); libjpeg hands it through.
  const bool inverted = cmyk && cinfo.saw_Adobe_marker;
  jpeg_finish_decompress(&cinfo);
  jpeg_destroy_decompress(&cinfo);
  if (err.prematureEnd) return false;
  if (cmyk) {
    for (std::size_t i = 0; i < pixels->size(); i += 4) {
      std::uint8_t* p = pixels->data() + i;
      unsigned c = p[0], m = p[1], y = p[2], k = p[3];
      if (!inverted) {
        c = 255 - c;
        m = 255 - m;
        y = 255 - y;
        k = 255 - k;
      }
      // Now each value is the share of light let through.
      p[0] = static_cast<std::uint8_t>(c * k / 255);
      p[1] = static_cast<std::uint8_t>(m * k / 255);
      p[2] = static_cast<std::uint8_t>(y * k / 255);
      p[3] = 255;
    }
  }
  decoded->width = static_cast<int>(width);
  decoded->height = static_cast<int>(height);
  return true;
}

// ---- PNG -------------------------------------------------------------------

// libpng's simplified reader: errors come back as a zero result (it keeps
// its own jump buffer internally) and warnings are stored, not printed.
std::shared_ptr<Bitmap> decodePng(const std::uint8_t* bytes, std::size_t size) {
  png_image image;
  std::memset(&image, 0, sizeof image);
  image.version = PNG_IMAGE_VERSION;
  if (!png_image_begin_read_from_memory(&image, bytes, size)) return nullptr;
  if (image.width == 0 || image.height == 0 || !withinLimits(image.width, image.height) ||
      !heldBy(image.width, image.height, size, kMaxPngPixelsPerByte)) {
    png_image_free(&image);
    return nullptr;
  }
  image.format = PNG_FORMAT_RGBA;
  const std::size_t stride = static_cast<std::size_t>(image.width) * 4;
  std::vector<std::uint8_t> pixels;
  try {
    pixels.resize(stride * image.height);
  } catch (const std::bad_alloc&) {
    png_image_free(&image);
    return nullptr;
  }
  // finish_read releases the reader whether or not it succeeds.
  if (!png_image_finish_read(&image, nullptr, pixels.data(), static_cast<png_int_32>(stride), nullptr)) {
    return nullptr;
  }
  return Bitmap::make(static_cast<int>(image.width), static_cast<int>(image.height), std::move(pixels));
}

// ---- the codec -------------------------------------------------------------

bool isJpeg(const Data& d) {
  return d.size() >= 3 && d.bytes()[0] == 0xFF && d.bytes()[1] == 0xD8 && d.bytes()[2] == 0xFF;
}

bool isPng(const Data& d) {
  static const std::uint8_t kSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
  return d.size() >= 8 && std::memcmp(d.bytes(), kSignature, 8) == 0;
}

class LinuxImageCodec final : public platform::ImageCodec {
 public:
  Data jpegRepresentation(const platform::Image& image, double quality) override {
    const auto* bitmap = dynamic_cast<const Bitmap*>(&image);
    if (bitmap == nullptr || bitmap->width() <= 0 || bitmap->height() <= 0) return Data();
    std::vector<std::uint8_t> out;
    if (!encodeJpegGuarded(*bitmap, jpegQuality(quality), &out)) return Data();
    out.shrink_to_fit();
    return Data::adopt(std::move(out));
  }

  std::shared_ptr<platform::Image> decode(const Data& bytes) override {
    if (isPng(bytes)) return decodePng(bytes.bytes(), bytes.size());
    if (!isJpeg(bytes)) return nullptr;
    std::vector<std::uint8_t> pixels;
    DecodedSize decoded;
    if (!decodeJpegGuarded(bytes.bytes(), bytes.size(), &pixels, &decoded)) return nullptr;
    return Bitmap::make(decoded.width, decoded.height, std::move(pixels));
  }
};

}  // namespace

std::shared_ptr<Bitmap> Bitmap::make(int width, int height, std::vector<std::uint8_t> rgba) {
  if (width < 0 || height < 0 || !withinLimits(static_cast<std::uint64_t>(width), static_cast<std::uint64_t>(height))) {
    return nullptr;
  }
  if (rgba.size() != static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4) return nullptr;
  return std::make_shared<Bitmap>(Key(), width, height, std::move(rgba));
}

std::shared_ptr<Bitmap> Bitmap::blank(int width, int height) {
  if (width < 0 || height < 0 || !withinLimits(static_cast<std::uint64_t>(width), static_cast<std::uint64_t>(height))) {
    return nullptr;
  }
  try {
    std::vector<std::uint8_t> rgba(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4, 0);
    return make(width, height, std::move(rgba));
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

std::shared_ptr<platform::ImageCodec> makeImageCodec() { return std::make_shared<LinuxImageCodec>(); }

}  // namespace mirelo::linuxport
