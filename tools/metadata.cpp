#include "metadata.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "exif.h"

namespace tool {
namespace {

using Bytes = std::vector<uint8_t>;

uint32_t bigEndian(const Bytes& bytes, size_t at) {
  return uint32_t{bytes[at]} << 24 | uint32_t{bytes[at + 1]} << 16 | uint32_t{bytes[at + 2]} << 8 | bytes[at + 3];
}

// Header and table of tags as in ICC.1, section 7.
bool isSoundProfile(const Bytes& profile) {
  constexpr size_t kHeader = 128;
  constexpr size_t kTag = 12;
  if (profile.size() < kHeader + 4 || bigEndian(profile, 0) != profile.size()) return false;
  if (std::memcmp(profile.data() + 36, "acsp", 4) != 0) return false;
  const size_t tags = bigEndian(profile, kHeader);
  if (tags > (profile.size() - kHeader - 4) / kTag) return false;
  for (size_t i = 0; i < tags; ++i) {
    const size_t offset = bigEndian(profile, kHeader + 4 + kTag * i + 4);
    const size_t length = bigEndian(profile, kHeader + 4 + kTag * i + 8);
    if (offset > profile.size() || length > profile.size() - offset) return false;
  }
  return true;
}

// Where a packet names its extension: the property xmpNote:HasExtendedXMP, as an attribute or as an element.
struct ExtensionNote {
  size_t begin = 0;
  size_t end = 0;  // 0: none
  std::string name;
};

ExtensionNote findExtensionNote(const std::string& packet) {
  constexpr char kProperty[] = "HasExtendedXMP";
  constexpr size_t kDigits = 32;
  const size_t property = packet.find(kProperty);
  if (property == std::string::npos || property == 0) return {};
  const size_t begin = packet.find_last_of("< \t\r\n", property);
  const size_t mark = packet.find_first_of("\"'>", property);
  if (begin == std::string::npos || mark == std::string::npos || packet.size() - mark <= kDigits + 1) return {};
  const std::string name = packet.substr(mark + 1, kDigits);
  if (name.find_first_not_of("0123456789ABCDEFabcdef") != std::string::npos) return {};
  const size_t closed = mark + 1 + kDigits;
  if (packet[mark] != '>')
    return packet[closed] == packet[mark] ? ExtensionNote{begin, closed + 1, name} : ExtensionNote{};
  const size_t tag = packet.find(kProperty, closed);
  const size_t end = tag == std::string::npos ? tag : packet.find('>', tag);
  return end == std::string::npos ? ExtensionNote{} : ExtensionNote{begin, end + 1, name};
}

// The packet without the name of an extension that is not there.
void dropExtension(Metadata* metadata) {
  const ExtensionNote note = findExtensionNote(metadata->xmp);
  if (note.end != 0) metadata->xmp.erase(note.begin, note.end - note.begin);
  metadata->extendedXmpName.clear();
  metadata->extendedXmp.clear();
}

}  // namespace

int32_t Metadata::orientation() const {
  return exifOrientation(exif);
}

void Metadata::dropXmp() {
  xmp.clear();
  extendedXmpName.clear();
  extendedXmp.clear();
  xmpDamage.clear();
}

void Metadata::dropIcc() {
  icc.clear();
  iccDamage.clear();
}

void takeIcc(Bytes profile, Metadata* metadata) {
  // Some writers leave padding behind a profile.
  if (profile.size() > 4 && bigEndian(profile, 0) < profile.size()) profile.resize(bigEndian(profile, 0));
  if (!isSoundProfile(profile)) {
    metadata->iccDamage = "its ICC profile is damaged";
  } else if (std::memcmp(profile.data() + 16, "RGB ", 4) != 0) {
    metadata->iccDamage = "its ICC profile is not for RGB pictures";
  } else {
    metadata->icc = std::move(profile);
  }
}

void takeXmp(std::string packet, std::vector<ExtendedXmpPart> extended, Metadata* metadata) {
  while (!packet.empty() && packet.back() == '\0') packet.pop_back();
  const bool isRdf = packet.find("http://www.w3.org/1999/02/22-rdf-syntax-ns#") != std::string::npos;
  if (!isRdf || packet.find('\0') != std::string::npos) {
    metadata->xmpDamage = "its XMP packet is damaged";
    return;
  }
  metadata->xmp = std::move(packet);
  const ExtensionNote note = findExtensionNote(metadata->xmp);
  if (note.end == 0) return;
  // Parts of other names are left over from an earlier packet.
  extended.erase(std::remove_if(extended.begin(), extended.end(),
                                [&](const ExtendedXmpPart& part) { return part.name != note.name; }),
                 extended.end());
  std::sort(extended.begin(), extended.end(),
            [](const ExtendedXmpPart& a, const ExtendedXmpPart& b) { return a.offset < b.offset; });
  Bytes whole;
  bool sound = !extended.empty();
  for (const ExtendedXmpPart& part : extended) {
    sound = sound && part.offset == whole.size() && part.wholeBytes == extended[0].wholeBytes;
    whole.insert(whole.end(), part.bytes.begin(), part.bytes.end());
  }
  if (sound && whole.size() == extended[0].wholeBytes) {
    metadata->extendedXmpName = note.name;
    metadata->extendedXmp = std::move(whole);
  } else {
    dropExtension(metadata);
    metadata->xmpDamage = "the extended part of its XMP is damaged or missing";
  }
}

std::vector<std::string> fitMetadata(Metadata* metadata, const MetadataRoom& room, int32_t width, int32_t height) {
  std::vector<std::string> losses;
  const auto leaveOut = [&](const std::string& reason) { losses.push_back(reason + "; it is left out"); };
  for (std::string* damage : {&metadata->xmpDamage, &metadata->iccDamage}) {
    if (!damage->empty()) leaveOut(std::exchange(*damage, {}));
  }
  if (!metadata->exif.empty()) {
    std::optional<Bytes> fitting = exifForSize(metadata->exif, width, height);
    if (!fitting || fitting->size() > room.exif) {
      const std::string reason = fitting ? "its EXIF block is too large for the result" : "its EXIF block is damaged";
      const int32_t orientation = metadata->orientation();
      fitting = orientation == 1 ? Bytes() : exifWithOrientation(orientation);
      if (orientation == 1) {
        leaveOut(reason);
      } else {
        losses.push_back(reason + "; all but its orientation is left out");
      }
    }
    metadata->exif = std::move(*fitting);
  }
  if (metadata->extendedXmp.size() > room.extendedXmp) {
    leaveOut("the extended part of its XMP has no place in the result");
    dropExtension(metadata);
  }
  if (metadata->xmp.size() > room.xmp) {
    leaveOut("its XMP packet is too large for the result");
    metadata->dropXmp();
  }
  if (metadata->icc.size() > room.icc) {
    leaveOut("its ICC profile is too large for the result");
    metadata->dropIcc();
  }
  return losses;
}

}  // namespace tool
