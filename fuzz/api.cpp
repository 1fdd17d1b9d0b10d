// Sequences of calls of the C interface against a model of its states: statuses, what the getters show after every
// call, and the bytes round the caller's buffers. Most inputs stop short of a merge, which costs far more than all
// other calls; an input that may merge says so in its first byte.
#include <array>
#include <cmath>
#include <limits>
#include <string>

#include "api/zelvan_tessaline4.h"
#include "support.h"

namespace fuzz {
namespace {

constexpr uint32_t kOk = ZELVAN_TESSALINE4_OK;
constexpr uint32_t kParam = ZELVAN_TESSALINE4_ERROR_PARAM;
constexpr uint32_t kState = ZELVAN_TESSALINE4_ERROR_STATE;
constexpr uint32_t kUnsupported = ZELVAN_TESSALINE4_ERROR_UNSUPPORTED;
constexpr uint32_t kResource = ZELVAN_TESSALINE4_ERROR_RESOURCE;

constexpr int32_t kWidth = 640;
constexpr int32_t kHeight = 480;
constexpr int32_t kFewFrames = 3;  // what the working memory is for
constexpr int32_t kMostFrames = 10;
constexpr int32_t kMostSide = 720;  // of the pictures that the buffers hold, with a wide pitch
constexpr size_t kMostBytes = 2 * kMostSide * kMostSide;
constexpr int32_t kMostCalls = 48;
constexpr int32_t kMostMerges = 2;

constexpr const char* kFormats[] = {"YVU420_SEMIPLANAR", "YUV420_SEMIPLANAR", "YUV420_PLANAR", "YUV422_YUYV"};
constexpr const char* kOtherFormats[] = {"RGB888", "", "NONE", nullptr, "YUV422_PLANAR", "yuv420_planar"};
constexpr int32_t kExtremes[] = {0, 1, -1, 2, 100, 101, 255, 1000, 0x7FFFFFFF, -0x7FFFFFFF - 1};

struct IntSetting {
  uint32_t (*set)(zelvan_Tessaline4*, int32_t);
  uint32_t (*get)(zelvan_Tessaline4*, int32_t*);
  int32_t initial;
  uint32_t most;  // compared unsigned; all ones: no limit
  bool flag = false;
};
constexpr uint32_t kAny = 0xFFFFFFFFu;
constexpr IntSetting kInts[] = {
    {zelvan_Tessaline4_setNumberOfMergeImages, zelvan_Tessaline4_getNumberOfMergeImages, 11, kAny},
    {zelvan_Tessaline4_setAutoScaling, zelvan_Tessaline4_getAutoScaling, 0, kAny, true},
    {zelvan_Tessaline4_setAutoSorting, zelvan_Tessaline4_getAutoSorting, 1, kAny, true},
    {zelvan_Tessaline4_setObjBlurCorrectionLevel, zelvan_Tessaline4_getObjBlurCorrectionLevel, 1, 7},
    {zelvan_Tessaline4_setLumaNoiseReductionLevel, zelvan_Tessaline4_getLumaNoiseReductionLevel, 0, 7},
    {zelvan_Tessaline4_setChromaNoiseReductionLevel, zelvan_Tessaline4_getChromaNoiseReductionLevel, 0, 7},
    {zelvan_Tessaline4_setSaturationLevel, zelvan_Tessaline4_getSaturationLevel, 1024, 4096},
    {zelvan_Tessaline4_setGain, zelvan_Tessaline4_getGain, 100, 1000},
    {zelvan_Tessaline4_setGamma, zelvan_Tessaline4_getGamma, 100, 1000},
    {zelvan_Tessaline4_setContrast, zelvan_Tessaline4_getContrast, 0, 2000},
    {zelvan_Tessaline4_setSharpnessEnhanceLevel, zelvan_Tessaline4_getSharpnessEnhanceLevel, 900, 10000},
    {zelvan_Tessaline4_setLumaNoiseReductionTimes_internal, zelvan_Tessaline4_getLumaNoiseReductionTimes_internal, 0,
     kAny},
    {zelvan_Tessaline4_setChromaNoiseReductionTimes_internal, zelvan_Tessaline4_getChromaNoiseReductionTimes_internal,
     0, kAny},
    {zelvan_Tessaline4_setRemoveSpikeNoiseLevel_internal, zelvan_Tessaline4_getRemoveSpikeNoiseLevel_internal, 0, kAny},
    {zelvan_Tessaline4_setFineMode, zelvan_Tessaline4_getFineMode, 0, 1},
};
constexpr size_t kIntCount = std::size(kInts);
constexpr size_t kMergeCount = 0;    // place of the number of frames to merge
constexpr size_t kChromaTimes = 12;  // and of the chroma passes, each of which costs
constexpr size_t kFineMode = 14;

struct DoubleSetting {
  uint32_t (*set)(zelvan_Tessaline4*, double);
  uint32_t (*get)(zelvan_Tessaline4*, double*);
  double initial;
  bool percent = false;  // 0 to 1000, cut to whole numbers
};
constexpr DoubleSetting kDoubles[] = {
    {zelvan_Tessaline4_setObjBlurCorrectionLevel_internal, zelvan_Tessaline4_getObjBlurCorrectionLevel_internal, 0.4},
    {zelvan_Tessaline4_setLumaNoiseReductionLevel_internal, zelvan_Tessaline4_getLumaNoiseReductionLevel_internal, 0.0,
     true},
    {zelvan_Tessaline4_setChromaNoiseReductionLevel_internal, zelvan_Tessaline4_getChromaNoiseReductionLevel_internal,
     4.0},
};
constexpr size_t kDoubleCount = std::size(kDoubles);

constexpr double kReals[] = {0.0,
                             -0.0,
                             0.4,
                             1.0,
                             4.0,
                             33.7,
                             1000.0,
                             1000.5,
                             -1.0,
                             1e-300,
                             1e300,
                             std::numeric_limits<double>::infinity(),
                             -std::numeric_limits<double>::infinity(),
                             std::numeric_limits<double>::quiet_NaN()};

bool same(double a, double b) {
  return std::memcmp(&a, &b, sizeof(a)) == 0;
}

enum Flag : uint32_t { kExists = 1, kOpen = 2, kFilled = 4, kDone = 8 };

// What a caller is promised.
struct Model {
  uint32_t flags = 0;
  bool sound = false;  // memory for the burst, and nothing but good records so far
  int32_t frames = 0;
  int32_t added = 0;
  std::array<int32_t, kIntCount> ints{};
  std::array<double, kDoubleCount> doubles{};
  double sigmas[2] = {0.2, 0.8};
  int32_t threads = -1;
  uint32_t mask = 0;
  size_t format = 0;           // of kFormats
  std::string shown = "NONE";  // name of the output's working format

  bool is(uint32_t wanted, uint32_t among) const { return (flags & among) == wanted; }
  uint32_t exists() const { return flags != 0 ? kOk : kParam; }
  uint32_t setter() const { return flags == 0 ? kParam : is(kExists, kExists | kOpen) ? kOk : kState; }
};

// A picture's record, and whether it describes the memory rightly.
struct Record {
  zelvan_ImageDataEx ex{};
  zelvan_ImageData plain{};
  bool good = true;
};

class Session {
 public:
  explicit Session(Input* input) : in_(*input), mayMerge_(in_.byte() % 8 == 7) {}

  void run() {
    makeInstance(true);
    for (int32_t call = 0; call < kMostCalls && !in_.empty(); ++call) {
      step();
      checkShown();
    }
    finish();
    checkGuards();
  }

 private:
  // Buffers live as long as the process: making them costs more than most inputs.
  static Guarded& memory() {
    static Guarded block(static_cast<size_t>(fullSize()) + 16);
    return block;
  }
  static Guarded& picture(size_t i) {
    static std::array<Guarded, kMostFrames + 1> blocks = {Guarded(kMostBytes), Guarded(kMostBytes), Guarded(kMostBytes),
                                                          Guarded(kMostBytes), Guarded(kMostBytes), Guarded(kMostBytes),
                                                          Guarded(kMostBytes), Guarded(kMostBytes), Guarded(kMostBytes),
                                                          Guarded(kMostBytes), Guarded(kMostBytes)};
    return blocks[i];
  }
  static Guarded& outputPicture() { return picture(kMostFrames); }
  static int32_t fullSize() {
    static const int32_t size = [] {
      int32_t most = 0;
      for (const char* format : kFormats) {
        most = std::max(most, zelvan_Tessaline4_getBufferSize(kWidth, kHeight, kFewFrames, format));
      }
      return most;
    }();
    return size;
  }
  static void checkGuards() {
    memory().check();
    for (size_t i = 0; i <= kMostFrames; ++i) picture(i).check();
  }

  // Something with structure, so that a merge finds motions. The same scene in every slot, moved a little.
  static const std::vector<uint8_t>& scene() {
    static const std::vector<uint8_t> bytes = [] {
      std::vector<uint8_t> out(kMostBytes + 64 * kMostSide);
      Noise noise(1);
      int32_t coarse[kMostSide] = {};
      for (size_t i = 0; i < out.size(); ++i) {
        const size_t x = i % kWidth;
        const size_t y = i / kWidth;
        if (y % 8 == 0 && x % 8 == 0) coarse[x] = noise();
        out[i] = static_cast<uint8_t>((3 * coarse[x / 8 * 8] + noise() / 8) / 4);
      }
      return out;
    }();
    return bytes;
  }
  void fill(Guarded* block, int32_t slot) {
    uint8_t* bytes = block->data();
    const size_t size = block->size();
    switch (in_.byte() % 4) {
      case 0:
        std::memset(bytes, in_.byte(), size);
        break;
      case 1:
        std::memcpy(bytes, scene().data(), size);
        break;
      default:
        std::memcpy(bytes, scene().data() + 2 * slot + kWidth * (slot % 3), size);
        break;
    }
  }

  void makeInstance(bool whole) {
    if (model_.is(kOpen, kOpen)) return;  // its threads still run
    const size_t skew = in_.byte() % 4 == 3 ? in_.byte() % 16 : 0;
    int32_t size = fullSize() + 16 - static_cast<int32_t>(skew);
    int32_t width = kWidth;
    int32_t height = kHeight;
    if (!whole) {
      constexpr int32_t kSizes[] = {0, -1, 1, 100, 5000, 1 << 20, 2 << 20, 4 << 20};
      if (in_.oneIn(2)) size = std::min(size, in_.pick(kSizes));
      constexpr int32_t kSides[] = {640, 480, 639, 479, 0, -1, 100000, 0x7FFFFFFF};
      if (in_.oneIn(4)) width = in_.pick(kSides);
      if (in_.oneIn(4)) height = in_.pick(kSides);
    }
    uint8_t* buffer = memory().data() + skew;
    const bool refused = size < 1 || std::max(width, height) < 640 || std::min(width, height) < 480;
    if (!refused) memory().arm(static_cast<size_t>(size) + skew);  // what lived there before is given up
    Tessal4Handle* const before = handle_.pointer;
    if (in_.oneIn(16)) {
      REQUIRE(zelvan_Tessaline4_initialize(nullptr, buffer, size, width, height) == kParam);
      REQUIRE(zelvan_Tessaline4_initialize(&handle_, nullptr, size, width, height) == kParam);
    }
    const uint32_t status = zelvan_Tessaline4_initialize(&handle_, buffer, size, width, height);
    if (refused) {
      REQUIRE(status == kParam && handle_.pointer == before);
      return;
    }
    const bool ample = size >= fullSize();
    if (ample) REQUIRE(status == kOk);
    if (size <= 5000) REQUIRE(status == kResource);
    model_ = Model();
    if (status != kOk) {
      REQUIRE(handle_.pointer == nullptr || status != kResource);
      if (handle_.pointer == nullptr) return;
    }
    model_.flags = kExists;
    model_.sound = ample && width == kWidth && height == kHeight;
    for (size_t i = 0; i < kIntCount; ++i) model_.ints[i] = kInts[i].initial;
    for (size_t i = 0; i < kDoubleCount; ++i) model_.doubles[i] = kDoubles[i].initial;
  }

  void finish() {
    const uint32_t status = zelvan_Tessaline4_finalize(&handle_);
    REQUIRE(status == model_.exists());
    REQUIRE(handle_.pointer == nullptr);
    model_ = Model();
  }

  void step() {
    switch (in_.byte() % 24) {
      case 0:
        return makeInstance(in_.oneIn(2));
      case 1:
        return finish();
      case 2:
      case 3:
        return setInt();
      case 4:
        return setDouble();
      case 5:
        return setFormat();
      case 6:
        return setCores();
      case 7:
        return setTables();
      case 8:
      case 9:
      case 10:
        return start();
      case 11:
      case 12:
      case 13:
      case 14:
        return add();
      case 15:
      case 16:
        return merge();
      case 17:
        return enhance();
      case 18:
        return mergeStatus();
      case 19:
        return frameInfo();
      case 20:
        return reset();
      case 21:
        return convertInput();
      case 22:
        return formatText();
      default:
        return in_.oneIn(2) ? nulls() : bufferSize();
    }
  }

  void setInt() {
    const size_t i = in_.byte() % kIntCount;
    int32_t value = in_.oneIn(4) ? in_.pick(kExtremes) : in_.between(0, 12);
    if (in_.oneIn(8)) value = static_cast<int32_t>(kInts[i].most) + in_.between(0, 1);
    // Every pass that the memory allows is run; only few of them, or too many, end soon.
    if (i == kChromaTimes && value != 0x7FFFFFFF) value = std::min(value, 2);
    const uint32_t status = kInts[i].set(&handle_, value);
    if (model_.setter() != kOk) return REQUIRE(status == model_.setter());
    if (static_cast<uint32_t>(kInts[i].flag ? 0 : value) > kInts[i].most) return REQUIRE(status == kParam);
    REQUIRE(status == kOk);
    model_.ints[i] = kInts[i].flag ? value != 0 : value;
  }

  void setDouble() {
    const size_t i = in_.byte() % (kDoubleCount + 1);
    const double value = in_.pick(kReals);
    if (i == kDoubleCount) {
      const double other = in_.pick(kReals);
      const uint32_t status = zelvan_Tessaline4_setSharpnessEnhanceSigma_internal(&handle_, value, other);
      REQUIRE(status == model_.setter());
      if (status != kOk) return;
      model_.sigmas[0] = value;
      model_.sigmas[1] = other;
      return;
    }
    const uint32_t status = kDoubles[i].set(&handle_, value);
    if (model_.setter() != kOk) return REQUIRE(status == model_.setter());
    if (kDoubles[i].percent && !(value >= 0.0 && value <= 1000.0)) return REQUIRE(status == kParam);
    REQUIRE(status == kOk);
    model_.doubles[i] = kDoubles[i].percent ? std::trunc(std::fabs(value)) : value;
  }

  void setFormat() {
    const bool known = !in_.oneIn(8);
    const size_t i = in_.byte() % std::size(kFormats);
    const uint32_t status = zelvan_Tessaline4_setImageFormat(&handle_, known ? kFormats[i] : in_.pick(kOtherFormats));
    if (model_.setter() != kOk) return REQUIRE(status == model_.setter());
    REQUIRE(status == (known ? kOk : kUnsupported));
    if (known) model_.format = i;
  }

  void setCores() {
    constexpr int32_t kThreads[] = {0, 1, 2, 3, -1, 5, 100, -0x7FFFFFFF - 1};
    constexpr uint32_t kMasks[] = {0, 1, 2, 3, 0x80000000u, 0xFFFFFFFFu, 0, 0};
    const int32_t threads = in_.pick(kThreads);
    const uint32_t mask = in_.pick(kMasks);
    const uint32_t status = zelvan_Tessaline4_setCoreSetting(&handle_, threads, mask);
    REQUIRE(status == model_.setter());
    if (status != kOk) return;
    model_.threads = threads;
    model_.mask = mask;
  }

  void setTables() {
    constexpr int32_t kCounts[] = {0, 1, 10, 32, 33, 34, -1, 0x7FFFFFFF, -0x7FFFFFFF - 1};
    const int32_t n = in_.pick(kCounts);
    float levels[33];
    int32_t thresholds[33];
    for (size_t k = 0; k < 33; ++k) {
      levels[k] = static_cast<float>(in_.pick(kReals));
      thresholds[k] = in_.pick(kExtremes);
    }
    const uint32_t wanted = model_.flags == 0 ? kParam : n > 32 ? kParam : kOk;
    if (in_.oneIn(2)) {
      REQUIRE(zelvan_Tessaline4_setNoiseReductionLevels(&handle_, levels, n) == wanted);
    } else {
      REQUIRE(zelvan_Tessaline4_setUvNoiseReductionThres(&handle_, thresholds, n) == wanted);
    }
  }

  // A record over block. wide: with the caller's pitches, as the Ex calls take them.
  Record record(Guarded* block, bool wide) {
    Record r;
    int32_t width = kWidth;
    int32_t height = kHeight;
    const bool odd = in_.byte() % 8 == 7;
    if (odd) {
      constexpr int32_t kSides[] = {640, 641, 480, 639, 1, 2, 17, 0, -1, 700};
      width = in_.pick(kSides);
      height = in_.pick(kSides);
      r.good = width == kWidth && height == kHeight;
    }
    const int32_t evenWidth = std::max(width + (width & 1), 0);
    const int32_t evenHeight = std::max(height + (height & 1), 0);
    const bool packed = model_.format == 3;
    int32_t pitches[3] = {evenWidth, evenWidth, 0};
    if (wide && in_.oneIn(2)) {
      for (int32_t i = 0; i < 2; ++i) pitches[i] = std::min(evenWidth + in_.between(0, 24), kMostSide);
    }
    const size_t luma = static_cast<size_t>(pitches[0]) * static_cast<size_t>(evenHeight);
    const size_t chroma = static_cast<size_t>(pitches[1]) * static_cast<size_t>(evenHeight) / 2;
    // The last row ends with its pixels, and the packed picture takes the same block in its turn.
    size_t bytes = luma + chroma;
    if (evenHeight > 0) bytes -= static_cast<size_t>(pitches[1] - evenWidth);
    if (packed) bytes = std::max(bytes, 2 * static_cast<size_t>(evenWidth) * static_cast<size_t>(std::max(height, 0)));
    uint8_t* base = block->arm(bytes);
    r.ex = {width, height, base, base + luma, base + luma + luma / 4, pitches[0], pitches[1], pitches[2]};
    if (in_.byte() % 16 == 15) {
      switch (in_.byte() % 4) {
        case 0:
          r.ex.plane0 = nullptr;
          break;
        case 1:
          r.ex.plane1 = nullptr;
          break;
        case 2:
          r.ex.plane0 = r.ex.plane1 = r.ex.plane2 = nullptr;
          break;
        default:
          r.ex.pitch0 = in_.pick(kExtremes) & 0xFF;  // below the row
          break;
      }
      r.good = false;
    }
    r.plain = {r.ex.width, r.ex.height, r.ex.plane0, r.ex.plane1, r.ex.plane2};
    return r;
  }

  void start() {
    constexpr int32_t kCounts[] = {2, 3, 1, 2, 0, -1, 10, 11, 0x7FFFFFFF, 2};
    const int32_t frames = in_.pick(kCounts);
    const bool wide = in_.oneIn(2);
    if (model_.is(kOpen, kOpen)) {  // the buffers are in use: any record will do
      zelvan_ImageData plain = {kWidth, kHeight, outputPicture().data(), outputPicture().data(), nullptr};
      return REQUIRE(zelvan_Tessaline4_start(&handle_, &plain, frames) == kState);
    }
    Record output = record(&outputPicture(), wide);
    const uint32_t status = wide ? zelvan_Tessaline4_startEx(&handle_, &output.ex, frames)
                                 : zelvan_Tessaline4_start(&handle_, &output.plain, frames);
    if (model_.flags == 0 || frames < 1 || frames > kMostFrames) return REQUIRE(status == kParam);
    if (status == kParam && !output.good) {
      // Refused, or open with a failure: what is open to an instance tells.
      int32_t count = 0;
      REQUIRE(zelvan_Tessaline4_getNumberOfMergeImages(&handle_, &count) == kOk);
      if (zelvan_Tessaline4_setNumberOfMergeImages(&handle_, count) == kOk) {
        REQUIRE(count == model_.ints[kMergeCount]);
        return;
      }
    }
    model_.sound = model_.sound && output.good && frames <= kFewFrames && ownFormat(wide);
    if (model_.sound) REQUIRE(status == kOk);
    model_.flags |= kOpen;
    model_.frames = frames;
    model_.added = 0;
    model_.ints[kMergeCount] = std::min(model_.ints[kMergeCount], frames);
    shownUnsure_ = !model_.sound;
    model_.shown = model_.format == 0 ? kFormats[0] : kFormats[1];
  }

  // Wrapped formats are for the records without pitches.
  bool ownFormat(bool wide) const { return !wide || model_.format < 2; }

  void add() {
    const bool wide = in_.oneIn(4);
    if (in_.oneIn(32)) REQUIRE(zelvan_Tessaline4_addImage(&handle_, nullptr) == kParam);
    const bool takes = model_.flags != 0 && model_.is(kOpen, kOpen | kDone) && model_.added < model_.frames;
    if (!takes) {
      uint32_t wanted = kParam;
      if (model_.flags != 0) wanted = model_.is(kOpen, kOpen | kDone) ? kParam : kState;
      // Refused before the record is looked at.
      zelvan_ImageData plain = {kWidth, kHeight, outputPicture().data(), outputPicture().data(), nullptr};
      zelvan_ImageDataEx ex = {kWidth, kHeight, plain.plane0, plain.plane1, nullptr, kWidth, kWidth, 0};
      return REQUIRE((wide ? zelvan_Tessaline4_addImageEx(&handle_, &ex)
                           : zelvan_Tessaline4_addImage(&handle_, &plain)) == wanted);
    }
    Guarded& block = picture(static_cast<size_t>(model_.added));
    Record frame = record(&block, wide);
    fill(&block, model_.added);
    const uint32_t status =
        wide ? zelvan_Tessaline4_addImageEx(&handle_, &frame.ex) : zelvan_Tessaline4_addImage(&handle_, &frame.plain);
    model_.sound = model_.sound && frame.good && ownFormat(wide);
    if (model_.sound) REQUIRE(status == kOk);
    ++model_.added;
    model_.flags |= kFilled;
  }

  void merge() {
    const bool whole = in_.oneIn(2);
    const bool takes = model_.flags != 0 && model_.is(kFilled, kFilled | kDone);
    if (takes && (!mayMerge_ || merges_ >= kMostMerges || model_.frames > kFewFrames)) return;
    const uint32_t status = whole ? zelvan_Tessaline4_getResult(&handle_) : zelvan_Tessaline4_merge(&handle_);
    if (model_.flags == 0) return REQUIRE(status == kParam);
    if (!takes) return REQUIRE(status == kState);
    ++merges_;
    // A burst that is not full has no promised result, nor has a chroma pass count that the memory cannot hold.
    const bool promised = model_.sound && model_.added == model_.frames && model_.ints[kChromaTimes] <= 2;
    if (promised) REQUIRE(status == kOk);
    int32_t word = 0;
    const uint32_t asked = zelvan_Tessaline4_getMergeStatus(&handle_, &word, 0);
    REQUIRE(asked == kOk || !promised);
    if (asked == kState) return;  // the finish broke off, and the burst stays open
    model_.flags |= kDone;
    promised_ = promised;
    if (promised) checkReport();
  }

  void checkReport() {
    int32_t orders = 0;
    for (int32_t i = 0; i < model_.frames; ++i) {
      zelvan_FrameInfo info;
      std::memset(&info, 0xEE, sizeof(info));
      int32_t word = -1;
      REQUIRE(zelvan_Tessaline4_getFrameInfo(&handle_, i, &info) == kOk);
      REQUIRE(info.mergeStatus >= 0 && info.mergeStatus <= 4);
      if (i <= model_.ints[kMergeCount]) {
        REQUIRE(zelvan_Tessaline4_getMergeStatus(&handle_, &word, i) == kOk && word == info.mergeStatus);
      }
      REQUIRE(info.order >= 0 && info.order < model_.frames);
      orders |= 1 << info.order;
      for (const double m : info.motion) REQUIRE(std::isfinite(m));
      REQUIRE(info.motion[8] == 1.0);
    }
    REQUIRE(orders == (1 << model_.frames) - 1);
  }

  void enhance() {
    const bool takes = model_.is(kFilled | kDone, kFilled | kDone);
    if (takes && merges_ > kMostMerges) return;
    const uint32_t status = zelvan_Tessaline4_enhance(&handle_);
    if (model_.flags == 0) return REQUIRE(status == kParam);
    if (!takes) return REQUIRE(status == kState);
    ++merges_;
    if (model_.sound && model_.added == model_.frames && model_.ints[kChromaTimes] <= 2) REQUIRE(status == kOk);
  }

  void mergeStatus() {
    const int32_t index = in_.oneIn(2) ? in_.pick(kExtremes) : in_.between(0, 11);
    int32_t word = 77;
    const uint32_t status = zelvan_Tessaline4_getMergeStatus(&handle_, &word, index);
    if (model_.flags == 0 || index < 0 || index > model_.ints[kMergeCount]) {
      REQUIRE(status == kParam && word == 77);
    } else if (!model_.is(kDone, kDone)) {
      REQUIRE(status == kState && word == 77);
    } else {
      REQUIRE(status == kOk && word >= 0 && word <= 4);
    }
  }

  void frameInfo() {
    const int32_t index = in_.oneIn(2) ? in_.pick(kExtremes) : in_.between(0, 11);
    zelvan_FrameInfo info;
    std::memset(&info, 0x5A, sizeof(info));
    const zelvan_FrameInfo before = info;
    const uint32_t status = zelvan_Tessaline4_getFrameInfo(&handle_, index, &info);
    if (model_.flags == 0 || index < 0 || (model_.is(kOpen, kOpen) && index >= model_.frames)) {
      REQUIRE(status == kParam);
    } else {
      REQUIRE(status == (model_.is(kDone, kDone) ? kOk : kState));
    }
    if (status != kOk) REQUIRE(std::memcmp(&info, &before, sizeof(info)) == 0);
    fineInfo(index);
  }

  void fineInfo(int32_t index) {
    zelvan_FineInfo info = {};
    zelvan_FineFrameInfo frame = {};
    const uint32_t status = zelvan_Tessaline4_getFineInfo(&handle_, &info);
    const uint32_t frameStatus = zelvan_Tessaline4_getFineFrameInfo(&handle_, index, &frame);
    if (model_.flags == 0) return REQUIRE(status == kParam && frameStatus == kParam);
    const bool known = status == kOk;
    REQUIRE(known || status == kState);
    if (model_.is(kDone, kDone) && model_.ints[kFineMode] == 1) {
      REQUIRE(known || !promised_);
    } else {
      REQUIRE(!known);
    }
    const bool legal = index >= 0 && (!known || index < model_.added);
    REQUIRE(frameStatus == (legal ? status : kParam));
    if (!known) return;
    for (const double noise : info.noise) REQUIRE(std::isfinite(noise) && noise >= 0.0);
    REQUIRE(std::isfinite(info.lumaStrength) && std::isfinite(info.chromaStrength));
    REQUIRE(info.mapWidth > 0 && info.mapWidth <= kWidth && info.mapHeight > 0 && info.mapHeight <= kHeight);
    if (legal) REQUIRE(frame.share >= 0.0 && frame.share <= 1.0 && std::isfinite(frame.residual));
    Guarded map(static_cast<size_t>(info.mapWidth) * static_cast<size_t>(info.mapHeight));
    for (const int32_t of : {index, -1}) {
      const bool mapped = of == -1 || (of >= 0 && of < model_.added);
      REQUIRE(zelvan_Tessaline4_getFineMap(&handle_, of, map.data()) == (mapped ? kOk : kParam));
    }
    map.check();
  }

  void reset() {
    const uint32_t status = zelvan_Tessaline4_reset(&handle_);
    if (model_.flags == 0) return REQUIRE(status == kParam);
    if (!model_.is(kOpen, kOpen)) return REQUIRE(status == kState);
    if (model_.sound) REQUIRE(status == kOk);
    model_.flags = kExists | kOpen;
    model_.added = 0;
  }

  // In a block of its own kind, so that frames of a burst stay as they were added.
  void convertInput() {
    static Guarded block(kMostBytes);
    constexpr int32_t kIds[] = {16, 26, 27, 29, 0, -1, 16, 26};
    const int32_t from = in_.pick(kIds);
    const int32_t to = in_.oneIn(4) ? in_.pick(kIds) : 27;
    const Record frame = record(&block, false);
    // The larger of the two layouts, since the format is told by the call.
    const auto side = [](int32_t v) { return static_cast<size_t>(std::max(v + (v & 1), 0)); };
    uint8_t* base = block.arm(2 * side(frame.ex.width) * side(frame.ex.height));
    zelvan_ImageData plain = frame.plain;
    if (plain.plane0 != nullptr) plain.plane0 = base;
    std::memset(base, 0x33, block.size());
    const zelvan_ImageData before = plain;
    const uint32_t status = zelvan_Tessaline4_convertInput(&handle_, &plain, from, to);
    REQUIRE(zelvan_Tessaline4_convertInput(&handle_, nullptr, from, to) == kParam);
    if (model_.flags == 0) {
      REQUIRE(status == kParam);
    } else if (to != 27 || (from != 16 && from != 26)) {
      REQUIRE(status == kUnsupported);
    }
    if (status == kParam || status == kUnsupported) {
      REQUIRE(std::memcmp(&plain, &before, sizeof(plain)) == 0);
      REQUIRE(std::all_of(base, base + block.size(), [](uint8_t b) { return b == 0x33; }));
    }
    block.check();
  }

  void formatText() {
    const int32_t size = in_.oneIn(4) ? in_.pick(kExtremes) : in_.between(0, 24);
    // A terminator is written whatever the size.
    Guarded text(static_cast<size_t>(std::clamp(size, 1, 64)));
    const uint32_t status = zelvan_Tessaline4_getImageFormat(&handle_, reinterpret_cast<char*>(text.data()), size);
    REQUIRE(status == model_.exists());
    text.check();
  }

  void nulls() {
    zelvan_Tessaline4 empty = {nullptr};
    zelvan_Tessaline4* const handles[] = {nullptr, &empty, &handle_};
    zelvan_Tessaline4* const handle = in_.pick(handles);
    const bool live = handle == &handle_;
    int32_t number = 5;
    uint32_t mask = 6;
    double real = 7.0;
    float level = 1.0f;
    char text[8];
    zelvan_FrameInfo info;
    zelvan_FineInfo fine;
    zelvan_FineFrameInfo fineFrame;
    // With a live handle it is the other pointer that is missing.
    for (const IntSetting& s : kInts) {
      REQUIRE(s.get(handle, live ? nullptr : &number) == kParam);
      if (!live) REQUIRE(s.set(handle, 1) == kParam);
    }
    for (const DoubleSetting& s : kDoubles) {
      REQUIRE(s.get(handle, live ? nullptr : &real) == kParam);
      if (!live) REQUIRE(s.set(handle, 1.0) == kParam);
    }
    REQUIRE(zelvan_Tessaline4_getCoreSetting(handle, live ? nullptr : &number, &mask) == kParam);
    REQUIRE(zelvan_Tessaline4_getCoreSetting(handle, &number, live ? nullptr : &mask) == kParam);
    REQUIRE(zelvan_Tessaline4_getSharpnessEnhanceSigma_internal(handle, live ? nullptr : &real, &real) == kParam);
    REQUIRE(zelvan_Tessaline4_getSharpnessEnhanceSigma_internal(handle, &real, live ? nullptr : &real) == kParam);
    REQUIRE(zelvan_Tessaline4_getImageFormat(handle, live ? nullptr : text, 8) == kParam);
    REQUIRE(zelvan_Tessaline4_getMergeStatus(handle, live ? nullptr : &number, 0) == kParam);
    REQUIRE(zelvan_Tessaline4_getFrameInfo(handle, 0, live ? nullptr : &info) == kParam);
    REQUIRE(zelvan_Tessaline4_getFineInfo(handle, live ? nullptr : &fine) == kParam);
    REQUIRE(zelvan_Tessaline4_getFineFrameInfo(handle, 0, live ? nullptr : &fineFrame) == kParam);
    REQUIRE(zelvan_Tessaline4_getFineMap(handle, 0, live ? nullptr : reinterpret_cast<uint8_t*>(text)) == kParam);
    REQUIRE(zelvan_Tessaline4_setNoiseReductionLevels(handle, live ? nullptr : &level, 0) == kParam);
    REQUIRE(zelvan_Tessaline4_setUvNoiseReductionThres(handle, live ? nullptr : &number, 0) == kParam);
    REQUIRE(zelvan_Tessaline4_start(handle, nullptr, 2) == kParam);
    REQUIRE(zelvan_Tessaline4_startEx(handle, nullptr, 2) == kParam);
    REQUIRE(zelvan_Tessaline4_addImage(handle, nullptr) == kParam);
    REQUIRE(zelvan_Tessaline4_addImageEx(handle, nullptr) == kParam);
    if (live) return;
    for (const auto call :
         {zelvan_Tessaline4_getResult, zelvan_Tessaline4_merge, zelvan_Tessaline4_enhance, zelvan_Tessaline4_reset,
          zelvan_Tessaline4_finalize, zelvan_Tessaline4_setInternalParameter}) {
      REQUIRE(call(handle) == kParam);
    }
    REQUIRE(zelvan_Tessaline4_setImageFormat(handle, kFormats[0]) == kParam);
    REQUIRE(zelvan_Tessaline4_setCoreSetting(handle, 1, 1) == kParam);
    REQUIRE(zelvan_Tessaline4_setSharpnessEnhanceSigma_internal(handle, 1.0, 1.0) == kParam);
  }

  // Positive is enough for the frames' own shrunk copies, whatever was asked for.
  void bufferSize() {
    const auto side = [&] {
      return in_.oneIn(2) ? static_cast<int32_t>(in_.word()) >> in_.between(0, 24) : in_.between(480, 4000);
    };
    const int32_t width = side();
    const int32_t height = side();
    const int32_t frames = in_.oneIn(4) ? in_.pick(kExtremes) : in_.between(1, 10);
    const char* format = in_.oneIn(4) ? in_.pick(kOtherFormats) : in_.pick(kFormats);
    const int64_t bytes = zelvan_Tessaline4_getBufferSize(width, height, frames, format);
    const bool legal = width >= 480 && height >= 480 && std::max(width, height) >= 640 && frames >= 1 && frames <= 10;
    if (legal && bytes > 0) REQUIRE(bytes >= int64_t{2} * width * height);
  }

  // Every getter shows what the model holds: refused calls changed nothing.
  void checkShown() {
    const uint32_t wanted = model_.exists();
    for (size_t i = 0; i < kIntCount; ++i) {
      int32_t value = -77;
      REQUIRE(kInts[i].get(&handle_, &value) == wanted);
      REQUIRE(value == (wanted == kOk ? model_.ints[i] : -77));
    }
    for (size_t i = 0; i < kDoubleCount; ++i) {
      double value = -77.0;
      REQUIRE(kDoubles[i].get(&handle_, &value) == wanted);
      REQUIRE(same(value, wanted == kOk ? model_.doubles[i] : -77.0));
    }
    double sigmas[2] = {};
    REQUIRE(zelvan_Tessaline4_getSharpnessEnhanceSigma_internal(&handle_, &sigmas[0], &sigmas[1]) == wanted);
    int32_t threads = 0;
    uint32_t mask = 0;
    REQUIRE(zelvan_Tessaline4_getCoreSetting(&handle_, &threads, &mask) == wanted);
    char text[64] = "?";
    REQUIRE(zelvan_Tessaline4_getImageFormat(&handle_, text, sizeof(text)) == wanted);
    if (wanted != kOk) return;
    REQUIRE(same(sigmas[0], model_.sigmas[0]) && same(sigmas[1], model_.sigmas[1]));
    REQUIRE(threads == model_.threads && mask == model_.mask);
    if (!shownUnsure_ || !model_.is(kOpen, kOpen)) REQUIRE(model_.shown == text);
  }

  Input& in_;
  bool mayMerge_;
  Model model_;
  bool shownUnsure_ = false;  // a record that was refused leaves an output without format
  bool promised_ = false;     // of the merge that was last
  int32_t merges_ = 0;
  zelvan_Tessaline4 handle_ = {nullptr};
};

}  // namespace
}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  fuzz::Session(&input).run();
  return 0;
}
