#include "engine/media/exif_metadata.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <variant>

#include <exiv2/exiv2.hpp>

#include "engine/media/media_libraries.h"
#include "engine/util/text.h"

namespace lumivale::ExifMetadata {
namespace {

// ---- exiv2's view of a PhotoFile ----

// Read-only access for exiv2 with every read charged to the file's budget.
// exiv2 opens and closes its source around each step; the descriptor stays
// the PhotoFile's throughout. Containers that exiv2 parses in memory (TIFF,
// CR2) ask for a mapping of the whole file, charged once at its size.
class BudgetIo : public Exiv2::BasicIo {
 public:
  explicit BudgetIo(PhotoFile& file) : file_(file) {}
  ~BudgetIo() override { unmap(); }

  int open() override {
    position_ = 0;
    eof_ = false;
    return 0;
  }
  int close() override { return 0; }
  long write(const Exiv2::byte*, long) override { return 0; }
  long write(Exiv2::BasicIo&) override { return 0; }
  int putb(Exiv2::byte) override { return EOF; }
  void transfer(Exiv2::BasicIo&) override { throw Exiv2::Error(Exiv2::kerFileOpenFailed, path(), "rb", ""); }

  Exiv2::DataBuf read(long count) override {
    // A damaged length must not become a huge allocation: no read gets more
    // than the rest of the file.
    const long available = long(std::max<std::int64_t>(0, file_.size() - position_));
    Exiv2::DataBuf buffer(std::max(0L, std::min(count, available)));
    buffer.size_ = read(buffer.pData_, buffer.size_);
    return buffer;
  }
  long read(Exiv2::byte* into, long count) override {
    if (count <= 0) return 0;
    const std::size_t got = file_.read(position_, into, std::size_t(count));
    position_ += std::int64_t(got);
    eof_ = got < std::size_t(count);
    return long(got);
  }
  int getb() override {
    Exiv2::byte b;
    return read(&b, 1) == 1 ? b : EOF;
  }
  int seek(long offset, Position from) override {
    file_.charge();
    const std::int64_t base = from == beg ? 0 : from == cur ? position_ : file_.size();
    if (base + offset < 0) return 1;
    position_ = base + offset;
    eof_ = false;
    return 0;
  }
  Exiv2::byte* mmap(bool writeable) override {
    if (writeable || file_.size() == 0) throw Exiv2::Error(Exiv2::kerFailedToMapFileForReadWrite, path(), "");
    if (!mapped_) {
      file_.charge(file_.size());
      void* at = ::mmap(nullptr, std::size_t(file_.size()), PROT_READ, MAP_PRIVATE, file_.descriptor(), 0);
      if (at == MAP_FAILED) throw Exiv2::Error(Exiv2::kerFailedToMapFileForReadWrite, path(), "");
      mapped_ = static_cast<Exiv2::byte*>(at);
    }
    return mapped_;
  }
  // The mapping stays until the end: exiv2 maps again for each preview.
  int munmap() override { return 0; }
  long tell() const override { return long(position_); }
  std::size_t size() const override { return std::size_t(file_.size()); }
  bool isopen() const override { return true; }
  int error() const override { return 0; }
  bool eof() const override { return eof_; }
  std::string path() const override { return file_.path().string(); }

 private:
  void unmap() {
    if (mapped_) ::munmap(mapped_, std::size_t(file_.size()));
    mapped_ = nullptr;
  }

  PhotoFile& file_;
  std::int64_t position_ = 0;
  bool eof_ = false;
  Exiv2::byte* mapped_ = nullptr;
};

Exiv2::Image::AutoPtr openImage(PhotoFile& file) {
  initMediaLibraries();
  // exiv2 takes ownership through its own smart pointer.
  Exiv2::BasicIo::AutoPtr io(std::make_unique<BudgetIo>(file).release());
  return Exiv2::ImageFactory::open(io);
}

// ---- values ----

// The directories we read from, by exiv2's number for them: comparing
// numbers is what makes one pass over a camera's hundreds of entries cheap.
struct Directories {
  int image = Exiv2::ExifKey("Exif.Image.Make").ifdId();
  int photo = Exiv2::ExifKey("Exif.Photo.FNumber").ifdId();
  int gps = Exiv2::ExifKey("Exif.GPSInfo.GPSLatitude").ifdId();
};

const Directories& directories() {
  static const Directories ids;
  return ids;
}

std::optional<std::string> textOf(const Exiv2::Exifdatum& d) {
  const Exiv2::TypeId type = d.typeId();
  if (type != Exiv2::asciiString && type != Exiv2::string) return std::nullopt;
  return trimmed(d.toString());
}

// Component n of a numeric value as a double; absent for texts, undefined
// bytes and rationals with a zero denominator.
std::optional<double> numberOf(const Exiv2::Exifdatum& d, long n = 0) {
  if (n >= d.count()) return std::nullopt;
  const Exiv2::Value& v = d.value();
  switch (v.typeId()) {
    case Exiv2::unsignedRational: {
      auto r = static_cast<const Exiv2::URationalValue&>(v).value_.at(n);
      if (r.second == 0) return std::nullopt;
      return double(r.first) / double(r.second);
    }
    case Exiv2::signedRational: {
      auto r = static_cast<const Exiv2::RationalValue&>(v).value_.at(n);
      if (r.second == 0) return std::nullopt;
      return double(r.first) / double(r.second);
    }
    case Exiv2::unsignedByte:
    case Exiv2::unsignedShort:
    case Exiv2::unsignedLong:
    case Exiv2::signedByte:
    case Exiv2::signedShort:
    case Exiv2::signedLong:
      return double(v.toLong(n));
    case Exiv2::tiffFloat:
    case Exiv2::tiffDouble:
      return double(v.toFloat(n));
    default:
      return std::nullopt;
  }
}

// A whole number stored as one: rationals and floats do not count.
std::optional<long> integerOf(const Exiv2::Exifdatum& d) {
  const Exiv2::TypeId type = d.typeId();
  if (type == Exiv2::unsignedRational || type == Exiv2::signedRational || type == Exiv2::tiffFloat ||
      type == Exiv2::tiffDouble) {
    return std::nullopt;
  }
  auto n = numberOf(d);
  if (!n) return std::nullopt;
  return static_cast<long>(*n);
}

// Degrees, minutes and seconds (each a rational; cameras often give fewer
// parts with the fraction in the last) as decimal degrees.
std::optional<double> degreesOf(const Exiv2::Exifdatum& d) {
  double degrees = 0;
  double unit = 1;
  for (long i = 0; i < std::min<long>(d.count(), 3); ++i) {
    auto part = numberOf(d, i);
    if (!part) return std::nullopt;
    degrees += *part / unit;
    unit *= 60;
  }
  return degrees < 0 ? -degrees : degrees;
}

template <class T>
void fill(std::optional<T>& field, std::optional<T> value) {
  if (!field) field = std::move(value);
}

// Where each fact of ImageProperties lives and how its value is read.
enum class Directory { image, photo, gps };
using TextField = std::optional<std::string> ImageProperties::*;
using NumberField = std::optional<double> ImageProperties::*;
using IntegerField = std::optional<long> ImageProperties::*;
struct Fact {
  Directory directory;
  std::uint16_t tag;
  std::variant<TextField, NumberField, IntegerField> field;
  bool degrees = false;  ///< a number given as degrees, minutes and seconds
};

const Fact facts[] = {
    {Directory::image, 0x010f, &ImageProperties::make},
    {Directory::image, 0x0110, &ImageProperties::model},
    {Directory::image, 0x0131, &ImageProperties::software},
    {Directory::image, 0x0132, &ImageProperties::dateTime},
    {Directory::image, 0x013b, &ImageProperties::artist},
    {Directory::image, 0x8298, &ImageProperties::copyright},
    {Directory::photo, 0x829a, &ImageProperties::exposureTime},
    {Directory::photo, 0x829d, &ImageProperties::fNumber},
    {Directory::photo, 0x8827, &ImageProperties::iso},  // the first ISO speed rating
    {Directory::photo, 0x9003, &ImageProperties::dateTimeOriginal},
    {Directory::photo, 0x9204, &ImageProperties::exposureBias},
    {Directory::photo, 0x9207, &ImageProperties::meteringMode},
    {Directory::photo, 0x9209, &ImageProperties::flash},
    {Directory::photo, 0x920a, &ImageProperties::focalLength},
    {Directory::photo, 0xa403, &ImageProperties::whiteBalance},
    {Directory::photo, 0xa405, &ImageProperties::focalLength35},
    {Directory::photo, 0xa434, &ImageProperties::lensModel},
    {Directory::gps, 0x0001, &ImageProperties::latitudeRef},
    {Directory::gps, 0x0002, &ImageProperties::latitude, true},
    {Directory::gps, 0x0003, &ImageProperties::longitudeRef},
    {Directory::gps, 0x0004, &ImageProperties::longitude, true},
};

std::optional<Directory> directoryOf(const Exiv2::Exifdatum& d) {
  const Directories& ids = directories();
  const int ifd = d.ifdId();
  if (ifd == ids.image) return Directory::image;
  if (ifd == ids.photo) return Directory::photo;
  if (ifd == ids.gps) return Directory::gps;
  return std::nullopt;
}

// One pass over the entries, comparing numbers only; the first entry of
// each key decides.
void readFacts(const Exiv2::ExifData& exif, ImageProperties& p) {
  constexpr std::uint16_t orientationTag = 0x0112;
  std::optional<long> orientation;
  for (const Exiv2::Exifdatum& d : exif) {
    const auto directory = d.count() > 0 ? directoryOf(d) : std::nullopt;
    if (!directory) continue;
    if (*directory == Directory::image && d.tag() == orientationTag) fill(orientation, integerOf(d));
    for (const Fact& fact : facts) {
      if (fact.directory != *directory || fact.tag != d.tag()) continue;
      if (auto text = std::get_if<TextField>(&fact.field)) fill(p.**text, textOf(d));
      if (auto number = std::get_if<NumberField>(&fact.field))
        fill(p.**number, fact.degrees ? degreesOf(d) : numberOf(d));
      if (auto integer = std::get_if<IntegerField>(&fact.field)) fill(p.**integer, integerOf(d));
    }
  }
  if (orientation && *orientation >= 1 && *orientation <= 8) p.orientation = int(*orientation);
}

void readKeywords(const Exiv2::IptcData& iptc, ImageProperties& p) {
  for (const Exiv2::Iptcdatum& d : iptc) {
    if (d.record() == Exiv2::IptcDataSets::application2 && d.tag() == Exiv2::IptcDataSets::Keywords) {
      p.keywords.push_back(utf8FromLegacyText(d.toString()));
    }
  }
}

// Camera maker notes are private structures that exiv2 decodes at length
// (0.7 of the 0.75 ms it spends on a Sony camera JPEG) and that nothing here
// reads. Renaming the EXIF directory's MakerNote entry to a tag exiv2 does
// not know makes it keep the note as an opaque value.
std::string withoutMakerNote(std::string_view exif) {
  std::string block(exif);
  auto* p = reinterpret_cast<unsigned char*>(block.data());
  const std::size_t n = block.size();
  if (n < 8 || !((p[0] == 'I' && p[1] == 'I') || (p[0] == 'M' && p[1] == 'M'))) return block;
  const bool little = p[0] == 'I';
  const auto u16 = [&](std::size_t at) {
    return little ? std::uint16_t(p[at + 1] << 8 | p[at]) : std::uint16_t(p[at] << 8 | p[at + 1]);
  };
  const auto u32 = [&](std::size_t at) {
    return little ? std::uint32_t(u16(at + 2)) << 16 | u16(at) : std::uint32_t(u16(at)) << 16 | u16(at + 2);
  };
  // The entry for `tag` in the directory at `ifd`, by its offset.
  const auto entry = [&](std::uint32_t ifd, std::uint16_t tag) -> std::optional<std::size_t> {
    if (ifd < 8 || ifd > n - 2) return std::nullopt;
    const std::size_t count = u16(ifd);
    if (count > (n - ifd - 2) / 12) return std::nullopt;
    for (std::size_t i = 0; i < count; ++i) {
      if (u16(ifd + 2 + 12 * i) == tag) return ifd + 2 + 12 * i;
    }
    return std::nullopt;
  };
  const auto exifPointer = entry(u32(4), 0x8769);
  if (!exifPointer) return block;
  if (const auto makerNote = entry(u32(*exifPointer + 8), 0x927c)) {
    p[*makerNote] = p[*makerNote + 1] = 0xFF;
  }
  return block;
}

// The containers of camera RAW files among the formats exiv2 reads: a JPEG,
// PNG or HEIF image has no RAW directory, whatever its name.
bool isRawContainer(const Exiv2::Image& image) {
  switch (image.imageType()) {
    case Exiv2::ImageType::tiff:
    case Exiv2::ImageType::cr2:
    case Exiv2::ImageType::crw:
    case Exiv2::ImageType::mrw:
    case Exiv2::ImageType::orf:
    case Exiv2::ImageType::raf:
    case Exiv2::ImageType::rw2:
      return true;
    case Exiv2::ImageType::bmff:
      return image.mimeType() == "image/x-canon-cr3";
    default:
      return false;
  }
}

}  // namespace

FileFacts readImageFile(PhotoFile& file, ImageProperties& properties) {
  FileFacts facts;
  try {
    auto image = openImage(file);
    if (image.get() == nullptr) return facts;
    image->readMetadata();
    readFacts(image->exifData(), properties);
    readKeywords(image->iptcData(), properties);
    facts.hasExif = !image->exifData().empty();
    if (const Exiv2::DataBuf* icc = image->iccProfile(); icc && icc->size_ > 0) {
      facts.iccProfile.assign(reinterpret_cast<const char*>(icc->pData_), std::size_t(icc->size_));
    }
  } catch (const ReadBudgetExceeded&) {
    throw;
  } catch (const std::exception&) {
    // Damaged or foreign metadata: the facts it would have given are unknown.
  }
  return facts;
}

bool readImageBlocks(std::string_view exif, std::string_view photoshop, ImageProperties& properties) {
  initMediaLibraries();
  bool hasExif = false;
  if (!exif.empty()) {
    try {
      const std::string block = withoutMakerNote(exif);
      Exiv2::ExifData data;
      const auto order = Exiv2::ExifParser::decode(data, reinterpret_cast<const Exiv2::byte*>(block.data()),
                                                   std::uint32_t(block.size()));
      if (order != Exiv2::invalidByteOrder) {
        readFacts(data, properties);
        hasExif = !data.empty();
      }
    } catch (const std::exception&) {
    }
  }
  if (!photoshop.empty()) {
    try {
      // The IPTC record may be split over several resource blocks.
      Exiv2::Blob record;
      const auto* at = reinterpret_cast<const Exiv2::byte*>(photoshop.data());
      const auto* end = at + photoshop.size();
      const Exiv2::byte* found = nullptr;
      std::uint32_t headerSize = 0, dataSize = 0;
      while (at < end &&
             Exiv2::Photoshop::locateIptcIrb(at, long(end - at), &found, &headerSize, &dataSize) == 0) {
        if (std::uint64_t(dataSize) > std::uint64_t(end - found) - headerSize) break;
        record.insert(record.end(), found + headerSize, found + headerSize + dataSize);
        at = found + headerSize + dataSize + (dataSize & 1);
      }
      Exiv2::IptcData iptc;
      if (!record.empty() &&
          Exiv2::IptcParser::decode(iptc, record.data(), std::uint32_t(record.size())) == 0) {
        readKeywords(iptc, properties);
      }
    } catch (const std::exception&) {
    }
  }
  return hasExif;
}

std::string thumbnailJpeg(std::string_view exif) {
  if (exif.empty()) return {};
  initMediaLibraries();
  try {
    const std::string block = withoutMakerNote(exif);
    Exiv2::ExifData data;
    if (Exiv2::ExifParser::decode(data, reinterpret_cast<const Exiv2::byte*>(block.data()),
                                  std::uint32_t(block.size())) == Exiv2::invalidByteOrder) {
      return {};
    }
    const Exiv2::ExifThumbC thumbnail(data);
    if (std::string(thumbnail.mimeType()) != "image/jpeg") return {};
    const Exiv2::DataBuf bytes = thumbnail.copy();
    if (bytes.size_ <= 0) return {};
    return std::string(reinterpret_cast<const char*>(bytes.pData_), std::size_t(bytes.size_));
  } catch (const std::exception&) {
    return {};
  }
}

CarriedMetadata readCarried(PhotoFile& file) {
  // IFD0's entries that describe the photo rather than how the file stores
  // its pixels (those belong to the new file's encoder).
  constexpr std::uint16_t describing[] = {
      0x010d,  // DocumentName
      0x010e,  // ImageDescription
      0x010f,  // Make
      0x0110,  // Model
      0x011a,  // XResolution
      0x011b,  // YResolution
      0x0128,  // ResolutionUnit
      0x0132,  // DateTime
      0x013b,  // Artist
      0x013c,  // HostComputer
      0x8298,  // Copyright
  };
  // The EXIF directory's entries that describe the original file, not the
  // photo: its pixel size, the camera's private maker note, and the pointer
  // to the interoperability directory, which is not carried.
  constexpr std::uint16_t notCarried[] = {0xa002, 0xa003, 0x927c, 0xa005};
  const auto listed = [](const auto& tags, std::uint16_t tag) {
    return std::find(std::begin(tags), std::end(tags), tag) != std::end(tags);
  };

  CarriedMetadata carried;
  try {
    auto image = openImage(file);
    if (image.get() == nullptr) return carried;
    image->readMetadata();

    Exiv2::ExifData exif;
    for (const Exiv2::Exifdatum& d : image->exifData()) {
      const auto directory = directoryOf(d);
      if (!directory || (*directory == Directory::image && !listed(describing, d.tag())) ||
          (*directory == Directory::photo && listed(notCarried, d.tag()))) {
        continue;
      }
      exif.add(d);
    }
    if (!exif.empty()) {
      Exiv2::Blob blob;
      Exiv2::ExifParser::encode(blob, Exiv2::littleEndian, exif);
      carried.exif.assign(blob.begin(), blob.end());
    }

    // Texts that are not UTF-8 are Latin-1, as older records hold them;
    // the record we write declares UTF-8.
    Exiv2::IptcData iptc = image->iptcData();
    if (!iptc.empty()) {
      for (Exiv2::Iptcdatum& d : iptc) {
        if (d.typeId() == Exiv2::string) d.setValue(utf8FromLegacyText(d.toString()));
      }
      iptc["Iptc.Envelope.CharacterSet"] = "\x1b%G";
      const Exiv2::DataBuf record = Exiv2::IptcParser::encode(iptc);
      carried.iptc.assign(reinterpret_cast<const char*>(record.pData_), std::size_t(record.size_));
    }
  } catch (const ReadBudgetExceeded&) {
    throw;
  } catch (const std::exception&) {
    // What could not be read is not carried.
  }
  return carried;
}

std::optional<RawDirectory> readRawDirectory(PhotoFile& file) {
  try {
    auto image = openImage(file);
    if (image.get() == nullptr) return std::nullopt;
    image->readMetadata();  // a BMFF file knows its brand, so whether it is a CR3, only then
    if (!isRawContainer(*image)) return std::nullopt;
    const Exiv2::ExifData& exif = image->exifData();
    if (exif.empty()) return std::nullopt;

    // The shooting facts are where an image file has them; a RAW file may
    // keep its make and model (and a DNG its crop) in another directory
    // than the first, which some cameras use for a preview.
    ImageProperties facts;
    facts.orientation = 0;  // unknown until the tag says
    readFacts(exif, facts);
    std::optional<std::string> otherMake, otherModel;
    std::optional<double> pixelX, pixelY, cropX, cropY;
    for (const Exiv2::Exifdatum& d : exif) {
      if (d.count() == 0) continue;
      const std::uint16_t tag = d.tag();
      if (directoryOf(d) == Directory::photo) {
        if (tag == 0xa002) fill(pixelX, numberOf(d));
        if (tag == 0xa003) fill(pixelY, numberOf(d));
        continue;
      }
      if (tag != 0x010f && tag != 0x0110 && tag != 0xc620) continue;
      const std::string group = d.groupName();
      if (!Exiv2::ExifTags::isExifGroup(group) || Exiv2::ExifTags::isMakerGroup(group)) continue;
      if (tag == 0x010f) fill(otherMake, textOf(d));
      if (tag == 0x0110) fill(otherModel, textOf(d));
      if (tag == 0xc620 && d.count() >= 2 && !cropX) cropX = numberOf(d, 0), cropY = numberOf(d, 1);
    }

    RawDirectory raw;
    raw.make = facts.make.value_or(otherMake.value_or(""));
    raw.model = facts.model.value_or(otherModel.value_or(""));
    raw.lens = facts.lensModel.value_or("");
    raw.dateOriginal = facts.dateTimeOriginal.value_or(facts.dateTime.value_or(""));
    if (facts.iso && *facts.iso >= 1 && *facts.iso <= 0x7fffffff) raw.iso = int(*facts.iso);
    raw.exposure = std::max(0.0, facts.exposureTime.value_or(0));
    raw.fNumber = std::max(0.0, facts.fNumber.value_or(0));
    raw.focal = std::max(0.0, facts.focalLength.value_or(0));
    raw.orientation = facts.orientation;
    if (auto lens = Exiv2::lensName(exif); lens != exif.end() && lens->count() > 0) {
      raw.makerLens = trimmed(lens->print(&exif));
    }
    // An all-ones distance (infinity) reads as negative here: not recorded.
    if (auto distance = exif.findKey(Exiv2::ExifKey("Exif.Photo.SubjectDistance"));
        distance != exif.end() && distance->count() > 0) {
      const Exiv2::Rational r = distance->toRational();
      if (r.second > 0 && r.first > 0) raw.subjectDistance = std::min(double(r.first) / r.second, 1000.0);
    }
    const auto pixels = [](const std::optional<double>& v) {
      return v && *v >= 1 && *v <= 0x7fffffff ? int(*v + 0.5) : 0;
    };
    if (pixels(cropX) && pixels(cropY)) {
      raw.recordedWidth = pixels(cropX), raw.recordedHeight = pixels(cropY);
    } else if (pixels(pixelX) && pixels(pixelY)) {
      raw.recordedWidth = pixels(pixelX), raw.recordedHeight = pixels(pixelY);
    }

    Exiv2::PreviewManager manager(*image);
    for (const Exiv2::PreviewProperties& p : manager.getPreviewProperties()) {
      EmbeddedPreview preview;
      preview.source = EmbeddedPreview::Source::exiv2;
      preview.exiv2Id = static_cast<long>(p.id_);
      preview.mimeType = p.mimeType_;
      if (p.mimeType_ == "image/jpeg") {
        preview.format = EmbeddedPreview::Format::jpeg;
      } else if (p.mimeType_ == "image/tiff") {
        preview.format = EmbeddedPreview::Format::tiff;
      }
      preview.width = static_cast<int>(p.width_);
      preview.height = static_cast<int>(p.height_);
      preview.length = p.size_;
      raw.previews.push_back(preview);
    }
    return raw;
  } catch (const ReadBudgetExceeded&) {
    throw;
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

}  // namespace lumivale::ExifMetadata
