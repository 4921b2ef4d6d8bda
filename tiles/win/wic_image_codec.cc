#include "tiles/win/wic_image_codec.h"

#include <windows.h>

#include <objbase.h>
#include <wincodec.h>

#include <limits>

#include "base/log.h"
#include "tiles/win/com_pointer.h"

namespace cvn::agent {
namespace {

constexpr GUID kImagingFactoryClass{
    0x317D06E8, 0x5F24, 0x433D, {0xBD, 0xF7, 0x79, 0xCE, 0x68, 0xD8, 0xAB, 0xC2}};
constexpr GUID kImagingFactory{0xEC5EC8A9, 0xC395, 0x4314, {0x9C, 0x77, 0x54, 0xD7, 0xA9, 0x35, 0xFF, 0x70}};
constexpr GUID kJpegContainer{0x19E4A5AA, 0x5662, 0x4FC5, {0xA0, 0xC0, 0x17, 0x58, 0x02, 0x8E, 0x10, 0x57}};
constexpr GUID kBgra32{0x6FDDC324, 0x4E03, 0x4BFE, {0xB1, 0x85, 0x3D, 0x77, 0x76, 0x8D, 0xC9, 0x0F}};
constexpr GUID kBgr32{0x6FDDC324, 0x4E03, 0x4BFE, {0xB1, 0x85, 0x3D, 0x77, 0x76, 0x8D, 0xC9, 0x0E}};
constexpr GUID kBgr24{0x6FDDC324, 0x4E03, 0x4BFE, {0xB1, 0x85, 0x3D, 0x77, 0x76, 0x8D, 0xC9, 0x0C}};

bool Done(HRESULT result) {
  return SUCCEEDED(result);
}

/// This thread's membership in a COM apartment.
class ComApartment {
 public:
  ComApartment() : entered_(Done(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) {}
  ~ComApartment() {
    if (entered_) CoUninitialize();
  }
  ComApartment(const ComApartment&) = delete;
  ComApartment& operator=(const ComApartment&) = delete;

 private:
  /// Not where the thread has the other model already (0x80010106): that one is its owner's to leave.
  const bool entered_;
};

bool SetQuality(IPropertyBag2* options, int quality) {
  wchar_t name[] = L"ImageQuality";
  PROPBAG2 option{};
  option.pstrName = name;
  VARIANT value{};
  value.vt = VT_R4;
  value.fltVal = static_cast<float>(quality) / 100.0F;
  return Done(options->Write(1, &option, &value));
}

void DropFourthBytes(const PixelView& image, std::vector<uint8_t>& bgr) {
  bgr.resize(image.PixelCount() * 3);
  uint8_t* next = bgr.data();
  for (const uint8_t* pixel = image.firstByte; pixel != image.firstByte + image.PackedBytes(); pixel += 4) {
    next[0] = pixel[0];
    next[1] = pixel[1];
    next[2] = pixel[2];
    next += 3;
  }
}

bool WriteRows(IWICBitmapFrameEncode* frame, const PixelView& image, const uint8_t* rows, size_t pixelBytes) {
  const size_t stride = static_cast<size_t>(image.width) * pixelBytes;
  const size_t bytes = stride * static_cast<size_t>(image.height);
  if (bytes > std::numeric_limits<UINT>::max()) return false;
  return Done(frame->WritePixels(static_cast<UINT>(image.height), static_cast<UINT>(stride),
                                 static_cast<UINT>(bytes), const_cast<BYTE*>(rows)));
}

// A stream's bytes may lie anywhere in a larger block of memory, so they are read as a stream.
std::vector<uint8_t> BytesOf(IStream* stream) {
  STATSTG status{};
  if (!Done(stream->Stat(&status, STATFLAG_NONAME)) || status.cbSize.HighPart != 0) return {};
  if (!Done(stream->Seek({}, STREAM_SEEK_SET, nullptr))) return {};
  std::vector<uint8_t> bytes(status.cbSize.LowPart);
  ULONG count = 0;
  if (!Done(stream->Read(bytes.data(), status.cbSize.LowPart, &count)) || count != bytes.size()) return {};
  return bytes;
}

bool HasSize(IWICBitmapSource* image, int width, int height) {
  UINT codedWidth = 0;
  UINT codedHeight = 0;
  return Done(image->GetSize(&codedWidth, &codedHeight)) && codedWidth == static_cast<UINT>(width) &&
         codedHeight == static_cast<UINT>(height);
}

}  // namespace

struct WicImageCodec::Imaging {
  bool WriteFile(IStream* stream, const PixelView& image, int quality);
  bool WriteFrame(IWICBitmapEncoder* encoder, const PixelView& image, int quality);
  bool WritePixels(IWICBitmapFrameEncode* frame, const GUID& format, const PixelView& image);
  bool OpenFrame(std::span<const uint8_t> payload, ComPointer<IWICBitmapFrameDecode>& frame);

  /// Left last, after all that lives in it.
  ComApartment apartment;
  ComPointer<IWICImagingFactory> factory;
  std::vector<uint8_t> bgr;
};

WicImageCodec::WicImageCodec() : imaging_(std::make_unique<Imaging>()) {
  const HRESULT result =
      CoCreateInstance(kImagingFactoryClass, nullptr, CLSCTX_INPROC_SERVER, kImagingFactory,
                       reinterpret_cast<void**>(imaging_->factory.Receive()));
  if (Done(result)) return;
  Log().Warn("[codec] WIC is unavailable (0x%08lX); photographic tiles will be sent losslessly instead",
             static_cast<unsigned long>(result));
}

WicImageCodec::~WicImageCodec() = default;

bool WicImageCodec::Available() const {
  return static_cast<bool>(imaging_->factory);
}

std::vector<uint8_t> WicImageCodec::CompressJpeg(const PixelView& image, int quality) {
  ComPointer<IStream> stream;
  if (!Available() || !Done(CreateStreamOnHGlobal(nullptr, TRUE, stream.Receive()))) return {};
  if (!imaging_->WriteFile(stream.Get(), image, quality)) return {};
  return BytesOf(stream.Get());
}

bool WicImageCodec::Imaging::WriteFile(IStream* stream, const PixelView& image, int quality) {
  ComPointer<IWICBitmapEncoder> encoder;
  return Done(factory->CreateEncoder(kJpegContainer, nullptr, encoder.Receive())) &&
         Done(encoder->Initialize(stream, WICBitmapEncoderNoCache)) &&
         WriteFrame(encoder.Get(), image, quality) && Done(encoder->Commit());
}

bool WicImageCodec::Imaging::WriteFrame(IWICBitmapEncoder* encoder, const PixelView& image, int quality) {
  ComPointer<IWICBitmapFrameEncode> frame;
  ComPointer<IPropertyBag2> options;
  GUID format = kBgra32;  // in: what the rows are; out: what the encoder wants them to be
  return Done(encoder->CreateNewFrame(frame.Receive(), options.Receive())) && options &&
         SetQuality(options.Get(), quality) && Done(frame->Initialize(options.Get())) &&
         Done(frame->SetSize(static_cast<UINT>(image.width), static_cast<UINT>(image.height))) &&
         Done(frame->SetPixelFormat(&format)) && WritePixels(frame.Get(), format, image) &&
         Done(frame->Commit());
}

// Formats that would lose colours, or are not known, are refused.
bool WicImageCodec::Imaging::WritePixels(IWICBitmapFrameEncode* frame, const GUID& format,
                                         const PixelView& image) {
  if (IsEqualGUID(format, kBgra32) || IsEqualGUID(format, kBgr32))
    return WriteRows(frame, image, image.firstByte, 4);
  if (!IsEqualGUID(format, kBgr24)) return false;
  DropFourthBytes(image, bgr);
  return WriteRows(frame, image, bgr.data(), 3);
}

bool WicImageCodec::DecompressJpeg(std::span<const uint8_t> payload, int width, int height,
                                   std::vector<uint8_t>& pixels) {
  ComPointer<IWICBitmapFrameDecode> frame;
  ComPointer<IWICFormatConverter> converter;
  if (!Available() || !imaging_->OpenFrame(payload, frame) || !HasSize(frame.Get(), width, height))
    return false;
  if (!Done(imaging_->factory->CreateFormatConverter(converter.Receive()))) return false;
  if (!Done(converter->Initialize(frame.Get(), kBgra32, WICBitmapDitherTypeNone, nullptr, 0.0,
                                  WICBitmapPaletteTypeCustom)))
    return false;
  const auto stride = static_cast<size_t>(width) * 4;
  const size_t bytes = stride * static_cast<size_t>(height);
  if (bytes > std::numeric_limits<UINT>::max()) return false;
  pixels.resize(bytes);
  return Done(
      converter->CopyPixels(nullptr, static_cast<UINT>(stride), static_cast<UINT>(bytes), pixels.data()));
}

// The frame keeps what it was opened from alive; the payload must outlive it.
bool WicImageCodec::Imaging::OpenFrame(std::span<const uint8_t> payload,
                                       ComPointer<IWICBitmapFrameDecode>& frame) {
  if (payload.size() > std::numeric_limits<DWORD>::max()) return false;
  ComPointer<IWICStream> stream;
  ComPointer<IWICBitmapDecoder> decoder;
  return Done(factory->CreateStream(stream.Receive())) &&
         Done(stream->InitializeFromMemory(const_cast<BYTE*>(payload.data()),
                                           static_cast<DWORD>(payload.size()))) &&
         Done(factory->CreateDecoderFromStream(stream.Get(), nullptr, WICDecodeMetadataCacheOnDemand,
                                               decoder.Receive())) &&
         Done(decoder->GetFrame(0, frame.Receive()));
}

std::unique_ptr<TileImageCodec> CreateWicImageCodec() {
  auto codec = std::make_unique<WicImageCodec>();
  if (!codec->Available()) return nullptr;
  return codec;
}

}  // namespace cvn::agent
