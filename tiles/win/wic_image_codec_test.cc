#include "tiles/win/wic_image_codec.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <objbase.h>
#include <wincodec.h>

#include <string>
#include <thread>
#include <utility>

#include "testing/captured_log.h"
#include "tiles/image_codec_test.h"
#include "tiles/win/com_pointer.h"

namespace cvn::agent {
namespace {

/// What creating the imaging factory answers; S_OK lets the system do it.
HRESULT imagingAnswer = S_OK;

HRESULT WINAPI AnsweredCreateInstance(REFCLSID classId, IUnknown* outer, DWORD context, REFIID interfaceId,
                                      void** object) {
  if (imagingAnswer != S_OK) return imagingAnswer;
  static const auto real = reinterpret_cast<decltype(&CoCreateInstance)>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ole32.dll"), "CoCreateInstance")));
  return real(classId, outer, context, interfaceId, object);
}

}  // namespace

// Stands in for the import library's: what the codec calls in this program.
extern "C" {
decltype(&CoCreateInstance) __imp_CoCreateInstance = AnsweredCreateInstance;
}

std::unique_ptr<TileImageCodec> CreateHostImageCodec() {
  return CreateWicImageCodec();
}

namespace {

using Bytes = std::vector<uint8_t>;

constexpr GUID kFactoryClass{0x317D06E8, 0x5F24, 0x433D, {0xBD, 0xF7, 0x79, 0xCE, 0x68, 0xD8, 0xAB, 0xC2}};
constexpr GUID kFactory{0xEC5EC8A9, 0xC395, 0x4314, {0x9C, 0x77, 0x54, 0xD7, 0xA9, 0x35, 0xFF, 0x70}};
constexpr GUID kJpeg{0x19E4A5AA, 0x5662, 0x4FC5, {0xA0, 0xC0, 0x17, 0x58, 0x02, 0x8E, 0x10, 0x57}};

/// Replaces one method of all of a class's objects while it lives.
class ReplacedMethod {
 public:
  template <typename Method>
  ReplacedMethod(IUnknown* object, size_t slot, Method* method)
      : slot_(&(*reinterpret_cast<void***>(object))[slot]) {
    original_ = std::exchange(Writable(), reinterpret_cast<void*>(method));
  }
  ~ReplacedMethod() { Writable() = original_; }
  ReplacedMethod(const ReplacedMethod&) = delete;
  ReplacedMethod& operator=(const ReplacedMethod&) = delete;

  template <typename Method>
  Method* Original() const {
    return reinterpret_cast<Method*>(original_);
  }

 private:
  void*& Writable() {
    DWORD before = 0;
    VirtualProtect(slot_, sizeof(void*), PAGE_READWRITE, &before);
    return *slot_;
  }

  void** const slot_;
  void* original_ = nullptr;
};

HRESULT WINAPI Fail() {
  return E_FAIL;
}

HRESULT WINAPI Succeed() {
  return S_OK;
}

using CreateEncoderMethod = HRESULT WINAPI(IWICImagingFactory*, REFGUID, const GUID*, IWICBitmapEncoder**);
using CreateStreamMethod = HRESULT WINAPI(IWICImagingFactory*, IWICStream**);
using WriteOptionsMethod = HRESULT WINAPI(IPropertyBag2*, ULONG, PROPBAG2*, VARIANT*);

/// What the replaced methods, which are plain functions, work on.
struct {
  CreateEncoderMethod* createEncoder = nullptr;
  CreateStreamMethod* createStream = nullptr;
  WriteOptionsMethod* writeOptions = nullptr;
  /// Kept to see whether the codec let go of it.
  ComPointer<IWICBitmapEncoder> encoder;
  ComPointer<IWICStream> stream;
  std::wstring option;
  VARIANT value{};
  GUID proposal{};
  UINT stride = 0;
  Bytes rows;
} seen;

HRESULT WINAPI CreateKeptEncoder(IWICImagingFactory* factory, REFGUID container, const GUID* vendor,
                                 IWICBitmapEncoder** encoder) {
  const HRESULT result = seen.createEncoder(factory, container, vendor, encoder);
  if (SUCCEEDED(result)) {
    *seen.encoder.Receive() = *encoder;
    (*encoder)->AddRef();
  }
  return result;
}

HRESULT WINAPI CreateKeptStream(IWICImagingFactory* factory, IWICStream** stream) {
  const HRESULT result = seen.createStream(factory, stream);
  if (SUCCEEDED(result)) {
    *seen.stream.Receive() = *stream;
    (*stream)->AddRef();
  }
  return result;
}

HRESULT WINAPI NoteOption(IPropertyBag2* bag, ULONG count, PROPBAG2* options, VARIANT* values) {
  seen.option = count == 1 ? options->pstrName : L"not one option";
  seen.value = *values;
  return seen.writeOptions(bag, count, options, values);
}

HRESULT WINAPI Propose(IWICBitmapFrameEncode*, WICPixelFormatGUID* format) {
  *format = seen.proposal;
  return S_OK;
}

HRESULT WINAPI NoteRows(IWICBitmapFrameEncode*, UINT, UINT stride, UINT count, BYTE* rows) {
  seen.stride = stride;
  seen.rows.assign(rows, rows + count);
  return S_OK;
}

/// References to `object` besides the test's own.
template <typename Interface>
ULONG OthersReferences(const ComPointer<Interface>& object) {
  if (!object) return 0;
  object->AddRef();
  return object->Release() - 1;
}

/// One object of each class that the codec uses; their methods are those of the codec's objects too.
class WicImageCodecTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(codec_->Available());
    ASSERT_GE(CoCreateInstance(kFactoryClass, nullptr, CLSCTX_INPROC_SERVER, kFactory,
                               reinterpret_cast<void**>(factory_.Receive())),
              0);
    ASSERT_GE(CreateStreamOnHGlobal(nullptr, TRUE, memory_.Receive()), 0);
    ASSERT_GE(factory_->CreateEncoder(kJpeg, nullptr, encoder_.Receive()), 0);
    ASSERT_GE(encoder_->Initialize(memory_.Get(), WICBitmapEncoderNoCache), 0);
    ASSERT_GE(encoder_->CreateNewFrame(frame_.Receive(), options_.Receive()), 0);
    OpenDecoder();
  }

  void TearDown() override {
    seen.encoder = {};
    seen.stream = {};
  }

  void OpenDecoder() {
    jpeg_ = codec_->EncodeJpeg(picture_, 32, 32, 80);
    ASSERT_GE(factory_->CreateStream(stream_.Receive()), 0);
    ASSERT_GE(stream_->InitializeFromMemory(jpeg_.data(), static_cast<DWORD>(jpeg_.size())), 0);
    ASSERT_GE(factory_->CreateDecoderFromStream(stream_.Get(), nullptr, WICDecodeMetadataCacheOnDemand,
                                                decoder_.Receive()),
              0);
    ASSERT_GE(decoder_->GetFrame(0, decoded_.Receive()), 0);
    ASSERT_GE(factory_->CreateFormatConverter(converter_.Receive()), 0);
  }

  std::unique_ptr<WicImageCodec> codec_ = std::make_unique<WicImageCodec>();
  const Bytes picture_ = PhotographPixels(32, 32);
  Bytes jpeg_;
  ComPointer<IWICImagingFactory> factory_;
  ComPointer<IStream> memory_;
  ComPointer<IWICBitmapEncoder> encoder_;
  ComPointer<IWICBitmapFrameEncode> frame_;
  ComPointer<IPropertyBag2> options_;
  ComPointer<IWICStream> stream_;
  ComPointer<IWICBitmapDecoder> decoder_;
  ComPointer<IWICBitmapFrameDecode> decoded_;
  ComPointer<IWICFormatConverter> converter_;
};

TEST_F(WicImageCodecTest, EveryEncoderCallThatFailsGivesNothingAndReleasesAll) {
  const ReplacedMethod keep(factory_.Get(), 8, CreateKeptEncoder);
  seen.createEncoder = keep.Original<CreateEncoderMethod>();
  const struct {
    const char* what;
    IUnknown* object;
    size_t slot;
  } rows[] = {{"encoder: Initialize", encoder_.Get(), 3}, {"encoder: CreateNewFrame", encoder_.Get(), 10},
              {"encoder: Commit", encoder_.Get(), 11},    {"options: Write", options_.Get(), 4},
              {"frame: Initialize", frame_.Get(), 3},     {"frame: SetSize", frame_.Get(), 4},
              {"frame: SetPixelFormat", frame_.Get(), 6}, {"frame: WritePixels", frame_.Get(), 10},
              {"frame: Commit", frame_.Get(), 12},        {"stream: Read", memory_.Get(), 3},
              {"stream: Seek", memory_.Get(), 5},         {"stream: Stat", memory_.Get(), 12}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    {
      const ReplacedMethod failing(row.object, row.slot, Fail);
      EXPECT_TRUE(codec_->EncodeJpeg(picture_, 32, 32, 80).empty());
      ASSERT_TRUE(seen.encoder);
      EXPECT_EQ(OthersReferences(seen.encoder), 0U);
    }
    seen.encoder = {};
    EXPECT_EQ(codec_->EncodeJpeg(picture_, 32, 32, 80), jpeg_) << "afterwards";
  }
  const ReplacedMethod failing(factory_.Get(), 8, Fail);
  EXPECT_TRUE(codec_->EncodeJpeg(picture_, 32, 32, 80).empty());
}

TEST_F(WicImageCodecTest, EveryDecoderCallThatFailsIsAFailureAndReleasesAll) {
  const ReplacedMethod keep(factory_.Get(), 14, CreateKeptStream);
  seen.createStream = keep.Original<CreateStreamMethod>();
  const struct {
    const char* what;
    IUnknown* object;
    size_t slot;
  } rows[] = {{"factory: CreateDecoderFromStream", factory_.Get(), 4},
              {"factory: CreateFormatConverter", factory_.Get(), 10},
              {"stream: InitializeFromMemory", stream_.Get(), 16},
              {"decoder: GetFrame", decoder_.Get(), 13},
              {"frame: GetSize", decoded_.Get(), 3},
              {"converter: CopyPixels", converter_.Get(), 7},
              {"converter: Initialize", converter_.Get(), 8}};
  Bytes pixels;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    {
      const ReplacedMethod failing(row.object, row.slot, Fail);
      EXPECT_FALSE(codec_->Decode(jpeg_, 32, 32, pixels));
      ASSERT_TRUE(seen.stream);
      EXPECT_EQ(OthersReferences(seen.stream), 0U);
    }
    seen.stream = {};
    EXPECT_TRUE(codec_->Decode(jpeg_, 32, 32, pixels)) << "afterwards";
  }
  const ReplacedMethod failing(factory_.Get(), 14, Fail);
  EXPECT_FALSE(codec_->Decode(jpeg_, 32, 32, pixels));
}

TEST_F(WicImageCodecTest, QualityIsTheOneOption) {
  const ReplacedMethod note(options_.Get(), 4, NoteOption);
  seen.writeOptions = note.Original<WriteOptionsMethod>();
  const struct {
    int quality;
    float option;
  } rows[] = {{80, 0.8F}, {1, 0.01F}, {0, 0.01F}, {150, 1.0F}};
  for (const auto& row : rows) {
    EXPECT_FALSE(codec_->EncodeJpeg(picture_, 32, 32, row.quality).empty());
    EXPECT_EQ(seen.option, L"ImageQuality");
    EXPECT_EQ(seen.value.vt, VT_R4);
    EXPECT_FLOAT_EQ(seen.value.fltVal, row.option) << row.quality;
  }
}

TEST_F(WicImageCodecTest, RowsAreWrittenAsProposedAndLosingColorsIsRefused) {
  const ReplacedMethod propose(frame_.Get(), 6, Propose);
  const ReplacedMethod note(frame_.Get(), 10, NoteRows);
  const ReplacedMethod commit(frame_.Get(), 12, Succeed);  // the frame itself has been told nothing
  const Bytes picture{1, 2, 3, 255, 4, 5, 6, 255, 7, 8, 9, 255, 10, 11, 12, 255};
  const Bytes packed{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
  const struct {
    const char* what;
    GUID proposal;
    UINT stride;
    Bytes rows;
  } rows[] = {{"BGRA", GUID_WICPixelFormat32bppBGRA, 8, picture},
              {"BGR and a spare byte", GUID_WICPixelFormat32bppBGR, 8, picture},
              {"BGR", GUID_WICPixelFormat24bppBGR, 6, packed},
              {"gray", GUID_WICPixelFormat8bppGray, 0, {}},
              {"CMYK", GUID_WICPixelFormat32bppCMYK, 0, {}},
              {"red first", GUID_WICPixelFormat24bppRGB, 0, {}},
              {"unknown", GUID{}, 0, {}}};
  for (const auto& row : rows) {
    seen.proposal = row.proposal;
    seen.stride = 0;
    seen.rows.clear();
    const Bytes jpeg = codec_->EncodeJpeg(picture, 2, 2, 80);
    EXPECT_EQ(seen.stride, row.stride) << row.what;
    EXPECT_EQ(seen.rows, row.rows) << row.what;
    if (row.rows.empty()) {
      EXPECT_TRUE(jpeg.empty()) << row.what;
    }
  }
}

APTTYPE ApartmentType(HRESULT& result) {
  APTTYPE type = APTTYPE_CURRENT;
  APTTYPEQUALIFIER qualifier = APTTYPEQUALIFIER_NONE;
  result = CoGetApartmentType(&type, &qualifier);
  return type;
}

TEST(WicImageCodecThread, LeavesTheThreadAsItFoundIt) {
  std::thread([] {
    HRESULT result = S_OK;
    EXPECT_TRUE(WicImageCodec().Available());
    ApartmentType(result);
    EXPECT_EQ(result, CO_E_NOTINITIALIZED) << "its own membership is given back";

    ASSERT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK);
    const Bytes picture = PhotographPixels(32, 32);
    EXPECT_FALSE(WicImageCodec().EncodeJpeg(picture, 32, 32, 80).empty()) << "in the other apartment model";
    const APTTYPE type = ApartmentType(result);
    EXPECT_EQ(result, S_OK) << "another's membership is left alone";
    EXPECT_TRUE(type == APTTYPE_STA || type == APTTYPE_MAINSTA);
    CoUninitialize();
  }).join();
}

TEST(WicImageCodecThread, WithoutTheImagingComponentOneLineIsLoggedAndOnlyWebpWorks) {
  imagingAnswer = REGDB_E_CLASSNOTREG;
  CapturedLog log;
  const Bytes picture = PhotographPixels(32, 32);
  WicImageCodec codec;
  EXPECT_FALSE(codec.Available());
  EXPECT_TRUE(codec.EncodeJpeg(picture, 32, 32, 80).empty());
  Bytes pixels;
  EXPECT_FALSE(codec.Decode(Bytes(100, 0xFF), 32, 32, pixels));
  const auto webp = codec.EncodeWebp(picture, 32, 32, 80);
  ASSERT_TRUE(webp);
  EXPECT_TRUE(codec.Decode(*webp, 32, 32, pixels));
  const std::string line =
      "WRN [codec] WIC is unavailable (0x80040154); photographic tiles will be sent losslessly instead";
  EXPECT_EQ(log.Lines(), std::vector<std::string>{line});

  EXPECT_EQ(CreateWicImageCodec(), nullptr);
  EXPECT_EQ(log.Count(line), 2U);
  imagingAnswer = S_OK;
}

}  // namespace
}  // namespace cvn::agent
