#include "imaging/codec/Metadata.h"
#include "imaging/codec/MetadataEditor.h"

#include <turbojpeg.h>
#include <exiv2/exiv2.hpp>

#include <atomic>
#include <filesystem>
#include <random>
#include <thread>

#include <gtest/gtest.h>

#include "tests/support/DngWriter.h"
#include "tests/support/Fixtures.h"
#include "tests/support/MetadataTags.h"

namespace {

namespace fs = std::filesystem;
using ql::img::Metadata;
using ql::img::MetadataEditor;
using Bytes = std::vector<uint8_t>;
using ql::testing::Tags;

#ifdef QL_SAMPLES_DIR
const fs::path kSamples = QL_SAMPLES_DIR;
#else
const fs::path kSamples = fs::path(__FILE__).parent_path() / "../../../resources/samples";
#endif
const fs::path kCanon = kSamples / "three_men_night_flash.jpg";  // IXUS 300, maker note

Bytes readBytes(const fs::path& p) {
    return ql::testing::readBytes(p.string());
}

// A 16x8 JPEG without metadata.
Bytes tinyJpeg() {
    return ql::testing::encodeJpeg(16, 8, ql::testing::quadrantRGB(16, 8));
}

Bytes decodeJpeg(const Bytes& jpeg) {
    tjhandle tj = tjInitDecompress();
    Bytes rgb(16 * 8 * 3);
    tjDecompress2(tj, jpeg.data(), jpeg.size(), rgb.data(), 16, 0, 8, TJPF_RGB, 0);
    tjDestroy(tj);
    return rgb;
}

// A 2x2 RGB PNG without metadata.
const std::string kTinyPng(
    "\x89\x50\x4e\x47\x0d\x0a\x1a\x0a\x00\x00\x00\x0d\x49\x48\x44\x52"
    "\x00\x00\x00\x02\x00\x00"
    "\x00\x02\x08\x02\x00\x00\x00\xfd\xd4\x9a\x73\x00\x00\x00\x16\x49"
    "\x44\x41\x54\x78\xda\x63"
    "\x60\x60\x48\x39\xc1\x90\xc2\xc0\x70\x22\xe5\xc4\x89\x14\x00\x19"
    "\x0e\x04\xb1\x0b\x67\x71"
    "\xc4\x00\x00\x00\x00\x49\x45\x4e\x44\xae\x42\x60\x82",
    79);

// The PNG's chunks as type and data.
std::vector<std::pair<std::string, Bytes>> pngChunks(const Bytes& png) {
    std::vector<std::pair<std::string, Bytes>> chunks;
    for (size_t i = 8; i + 12 <= png.size();) {
        const size_t n =
            size_t(png[i]) << 24 | size_t(png[i + 1]) << 16 | png[i + 2] << 8 | png[i + 3];
        chunks.emplace_back(std::string(png.begin() + i + 4, png.begin() + i + 8),
                            Bytes(png.begin() + i + 8, png.begin() + i + 8 + n));
        i += 12 + n;
    }
    return chunks;
}

// Sets Exiv2 keys from text, each in its tag's standard type ("28/10" for a
// rational).
void tag(const fs::path& file, const Tags& tags) {
    ql::testing::setTags(file.string(), tags);
}

// The bytes of a TIFF's strips, located through its own tags.
Bytes tiffStrips(const fs::path& file) {
    const Metadata m = Metadata::read(file);
    const Bytes all = readBytes(file);
    Bytes strips;
    for (size_t i = 0; m.number("Exif.Image.StripOffsets", i); ++i) {
        const auto at = size_t(*m.number("Exif.Image.StripOffsets", i));
        const auto n = size_t(m.number("Exif.Image.StripByteCounts", i).value_or(0));
        if (at + n > all.size()) return {};
        strips.insert(strips.end(), all.begin() + at, all.begin() + at + n);
    }
    return strips;
}

class MetadataTest : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!fs::exists(kCanon)) GTEST_SKIP() << "no sample photos at " << kSamples;
    }
    fs::path file(const std::string& name, const Bytes& content) {
        ql::testing::writeBytes(dir_.file(name), content);
        return dir_.file(name);
    }
    // A tiny JPEG holding `tags`, as read back.
    Metadata tagged(const Tags& tags) {
        const fs::path p = file("tagged.jpg", tinyJpeg());
        tag(p, tags);
        return Metadata::read(p);
    }
    ql::testing::TempDir dir_;
};

TEST_F(MetadataTest, ReadsCameraSamples) {
    const Metadata canon = Metadata::read(kCanon);
    ASSERT_FALSE(canon.empty());
    EXPECT_EQ(canon.text("Exif.Image.Make"), "Canon");
    EXPECT_EQ(canon.text("Exif.Image.Model"), "Canon DIGITAL IXUS 300");
    EXPECT_EQ(canon.text("Exif.Canon.OwnerName"),
              "Matthias Gyra");  // from the maker note
    EXPECT_DOUBLE_EQ(*canon.number("Exif.Photo.ExposureTime"), 1.0 / 125);
    EXPECT_DOUBLE_EQ(*canon.number("Exif.Photo.FNumber"), 2.7);
    EXPECT_DOUBLE_EQ(*canon.number("Exif.Photo.FocalLength"), 173.0 / 32);
    EXPECT_EQ(canon.integer("Exif.Photo.PixelXDimension"), 1600);
    EXPECT_EQ(canon.interpreted("Exif.Photo.Flash"), "Fired");
    EXPECT_EQ(canon.orientation(), 1);
    EXPECT_EQ(canon.text("Exif.Image.Artist"), std::nullopt);
    EXPECT_EQ(canon.text("Exif.NoSuchGroup.Model"), std::nullopt);
    EXPECT_EQ(canon.text("Model"), std::nullopt);

    const auto entries = canon.entries();
    EXPECT_NE(std::find(entries.begin(), entries.end(),
                        std::pair<std::string, std::string>("Exif.Image.Model",
                                                            "Canon DIGITAL IXUS 300")),
              entries.end());
    const Bytes bytes = readBytes(kCanon);
    EXPECT_EQ(Metadata::fromBytes(bytes.data(), bytes.size()).entries(), entries);

    const Metadata sony = Metadata::read(kSamples / "party_crowd_indoor.jpg");
    EXPECT_EQ(sony.integer("Exif.Photo.ISOSpeedRatings"), 250);
    EXPECT_EQ(sony.text("Exif.Image.ImageDescription"),
              std::nullopt);  // only blanks
    const Metadata dng = Metadata::read(kSamples / "colorchart_canon550d.dng");
    EXPECT_EQ(dng.text("Exif.Image.Model"), "Canon EOS Kiss X4");
    EXPECT_EQ(dng.integer("Exif.Image.ImageWidth"), 1888);
}

TEST_F(MetadataTest, ValuesAndOrientation) {
    const Metadata m = tagged({{"Exif.Image.Orientation", "6"},
                               {"Exif.Image.Model", "  Model X  "},
                               {"Exif.Photo.ExposureBiasValue", "-2/3"},
                               {"Exif.Photo.FNumber", "28/0"},
                               {"Exif.Photo.FocalLength", "100/2"},
                               {"Exif.Photo.MaxApertureValue", "3/2"},
                               {"Exif.Photo.LensSpecification", "18/1 55/1 35/10 56/10"},
                               {"Xmp.exif.ApertureValue", "28/10"},
                               {"Xmp.dc.title", "lang=\"x-default\" Harbour"}});
    EXPECT_EQ(m.orientation(), 6);
    EXPECT_EQ(m.text("Exif.Image.Model"), "Model X");
    EXPECT_NEAR(*m.number("Exif.Photo.ExposureBiasValue"), -2.0 / 3, 1e-12);
    EXPECT_EQ(m.number("Exif.Photo.FNumber"), std::nullopt);
    EXPECT_EQ(m.integer("Exif.Photo.FocalLength"), 50);
    EXPECT_EQ(m.integer("Exif.Photo.MaxApertureValue"), std::nullopt);
    EXPECT_DOUBLE_EQ(*m.number("Exif.Photo.LensSpecification", 3), 5.6);
    EXPECT_EQ(m.number("Exif.Photo.LensSpecification", 4), std::nullopt);
    EXPECT_DOUBLE_EQ(*m.number("Xmp.exif.ApertureValue"), 2.8);
    EXPECT_EQ(m.text("Xmp.dc.title"), "Harbour");

    for (const char* outside : {"0", "9"})
        EXPECT_EQ(tagged({{"Exif.Image.Orientation", outside}}).orientation(), 1) << outside;
    EXPECT_EQ(tagged({{"Exif.Image.Make", "X"}}).orientation(), 1);
    EXPECT_EQ(Metadata().orientation(), 1);
}

TEST_F(MetadataTest, ExifApp1RoundTripsThroughExiv2) {
    const auto decode = [](const Bytes& app1) {
        Exiv2::ExifData exif;
        EXPECT_EQ(std::string(app1.begin(), app1.begin() + 6), std::string("Exif\0\0", 6));
        Exiv2::ExifParser::decode(exif, app1.data() + 6, uint32_t(app1.size() - 6));
        return exif;
    };
    const auto has = [](const Exiv2::ExifData& exif, const char* key) {
        return exif.findKey(Exiv2::ExifKey(key)) != exif.end();
    };
    Exiv2::ExifData canon = decode(Metadata::read(kCanon).exifApp1(800, 600));
    EXPECT_EQ(canon["Exif.Image.Make"].toString(), "Canon");
    EXPECT_EQ(canon["Exif.Photo.PixelXDimension"].toLong(), 800);
    EXPECT_EQ(canon["Exif.Photo.PixelYDimension"].toLong(), 600);
    EXPECT_FALSE(has(canon, "Exif.Thumbnail.JPEGInterchangeFormat"));
    // Maker notes go even when they would fit.
    EXPECT_FALSE(has(canon, "Exif.Photo.MakerNote"));
    EXPECT_FALSE(has(canon, "Exif.Canon.OwnerName"));
    EXPECT_TRUE(std::none_of(canon.begin(), canon.end(), [](const Exiv2::Exifdatum& d) {
        return d.groupName() == "MakerNote" || Exiv2::ExifTags::isMakerGroup(d.groupName());
    }));

    Exiv2::ExifData turned = decode(tagged({{"Exif.Image.Orientation", "8"}}).exifApp1(8, 16));
    EXPECT_EQ(turned["Exif.Image.Orientation"].toLong(), 1);

    // Nothing is made up: a copyright alone stays alone, and sizes are only updated.
    Exiv2::ExifData alone = decode(tagged({{"Exif.Image.Copyright", "An"}}).exifApp1(8, 16));
    EXPECT_EQ(alone.count(), 1);
    EXPECT_EQ(alone["Exif.Image.Copyright"].toString(), "An");
    Exiv2::ExifData dated = decode(tagged({{"Exif.Photo.DateTimeOriginal", "2020:01:02 03:04:05"},
                                           {"Exif.Photo.PixelYDimension", "99"}})
                                       .exifApp1(8, 16));
    EXPECT_EQ(dated["Exif.Photo.DateTimeOriginal"].toString(), "2020:01:02 03:04:05");
    EXPECT_EQ(dated["Exif.Photo.PixelYDimension"].toLong(), 16);
    EXPECT_FALSE(has(dated, "Exif.Photo.PixelXDimension"));
    EXPECT_FALSE(has(dated, "Exif.Image.Orientation"));

    // A DNG's description stays; its raw layout and processing tags do not.
    Exiv2::ExifData dng =
        decode(Metadata::read(kSamples / "colorchart_canon550d.dng").exifApp1(4, 4));
    EXPECT_EQ(dng["Exif.Image.Model"].toString(), "Canon EOS Kiss X4");
    for (const char* key :
         {"Exif.Image.ImageWidth", "Exif.Image.StripOffsets", "Exif.Image.BitsPerSample",
          "Exif.Image.DNGVersion", "Exif.Image.ColorMatrix1", "Exif.Image.CFAPattern"})
        EXPECT_FALSE(has(dng, key)) << key;

    // EXIF beyond a segment's 64 KiB (TIFF has no such limit) sheds entries until
    // it fits.
    const fs::path tiff = file("big.tif", readBytes(kSamples / "sample_16bit.tif"));
    Tags many = {{"Exif.Image.Make", "Big"}};
    for (int i = 0; i < 40; ++i)
        many.emplace_back("Exif.Image.0x" + std::to_string(9000 + i), std::string(2000, 'x'));
    tag(tiff, many);
    const Bytes big = Metadata::read(tiff).exifApp1(2, 2);
    ASSERT_FALSE(big.empty());
    EXPECT_LE(big.size(), 65533u);
    Exiv2::ExifData shrunk = decode(big);
    EXPECT_EQ(shrunk["Exif.Image.Make"].toString(), "Big");
    EXPECT_GT(shrunk.count(), 20);

    EXPECT_TRUE(Metadata().exifApp1(1, 1).empty());
}

TEST_F(MetadataTest, WritesIntoJpegPngAndTiff) {
    // The source: the Canon photo, turned, with IPTC and XMP.
    const fs::path sourcePath = file("source.jpg", readBytes(kCanon));
    tag(sourcePath, {{"Exif.Image.Orientation", "6"},
                     {"Iptc.Application2.Caption", "Three men"},
                     {"Xmp.dc.creator", "Someone"},
                     {"Xmp.tiff.Orientation", "6"},
                     {"Xmp.crs.Exposure2012", "+1.00"}});
    const Metadata source = Metadata::read(sourcePath);
    ASSERT_EQ(source.orientation(), 6);
    ASSERT_EQ(source.text("Xmp.crs.Exposure2012"), "+1.00");

    const auto expectCarried = [&](const fs::path& p, long width) {
        const Metadata m = Metadata::read(p);
        EXPECT_EQ(m.text("Exif.Image.Model"), "Canon DIGITAL IXUS 300") << p;
        EXPECT_EQ(m.orientation(), 1) << p;
        EXPECT_EQ(m.integer("Exif.Photo.PixelXDimension"), width) << p;
        EXPECT_EQ(m.text("Exif.Thumbnail.JPEGInterchangeFormat"), std::nullopt) << p;
        EXPECT_EQ(m.text("Iptc.Application2.Caption"), "Three men") << p;
        EXPECT_EQ(m.text("Xmp.dc.creator"), "Someone") << p;
        EXPECT_EQ(m.text("Xmp.tiff.Orientation"), "1") << p;
        EXPECT_EQ(m.text("Exif.Photo.MakerNote"), std::nullopt) << p;
        EXPECT_EQ(m.text("Exif.Canon.OwnerName"), std::nullopt) << p;
        EXPECT_EQ(m.text("Xmp.crs.Exposure2012"), std::nullopt) << p;
    };
    std::string error;

    const Bytes jpeg = tinyJpeg();
    const fs::path jpegPath = file("out.jpg", jpeg);
    ASSERT_TRUE(source.writeInto(jpegPath, 16, 8, &error)) << error;
    expectCarried(jpegPath, 16);
    EXPECT_EQ(decodeJpeg(readBytes(jpegPath)), decodeJpeg(jpeg));

    const fs::path pngPath = file("out.png", Bytes(kTinyPng.begin(), kTinyPng.end()));
    ASSERT_TRUE(source.writeInto(pngPath, 2, 2, &error)) << error;
    expectCarried(pngPath, 2);
    const auto before = pngChunks(Bytes(kTinyPng.begin(), kTinyPng.end()));
    const auto after = pngChunks(readBytes(pngPath));
    ASSERT_GE(after.size(), 4u);
    EXPECT_EQ(after[0], before[0]);
    EXPECT_EQ(after[1].first, "eXIf");
    EXPECT_EQ(
        std::count_if(after.begin(), after.end(), [](const auto& c) { return c.first == "eXIf"; }),
        1);
    EXPECT_NE(std::find(after.begin(), after.end(), before[1]),
              after.end());  // same IDAT

    // The TIFF keeps its own layout (16-bit, 290 wide) and pixels.
    const fs::path tiffPath = file("out.tif", readBytes(kSamples / "sample_16bit.tif"));
    const Bytes strips = tiffStrips(tiffPath);
    ASSERT_FALSE(strips.empty());
    ASSERT_TRUE(source.writeInto(tiffPath, 290, 442, &error)) << error;
    expectCarried(tiffPath, 290);
    const Metadata tiff = Metadata::read(tiffPath);
    EXPECT_EQ(tiff.integer("Exif.Image.ImageWidth"), 290);
    EXPECT_EQ(tiff.integer("Exif.Image.BitsPerSample"), 16);
    EXPECT_EQ(tiffStrips(tiffPath), strips);

    error.clear();
    EXPECT_FALSE(source.writeInto(dir_.path(), 1, 1, &error));
    EXPECT_FALSE(error.empty());
    const fs::path text = file("notes.txt", Bytes{'h', 'i', '\n'});
    EXPECT_FALSE(source.writeInto(text, 1, 1, &error));
    EXPECT_EQ(readBytes(text), (Bytes{'h', 'i', '\n'}));
    const fs::path untouched = file("plain.jpg", jpeg);
    EXPECT_TRUE(Metadata().writeInto(untouched, 16, 8));
    EXPECT_EQ(readBytes(untouched), jpeg);
}

// The values of every entry with the key, in file order.
std::vector<std::string> valuesOf(const Metadata& m, const std::string& key) {
    std::vector<std::string> values;
    for (const auto& [k, v] : m.entries())
        if (k == key) values.push_back(v);
    return values;
}

TEST_F(MetadataTest, EditorSetsTextInEachKindsType) {
    const Metadata source = tagged({{"Exif.Image.Make", "Cam"},
                                    {"Exif.Image.Orientation", "6"},
                                    {"Iptc.Application2.Keywords", "old"},
                                    {"Xmp.dc.title", "lang=\"de-DE\" Titel"}});
    MetadataEditor e(source);
    EXPECT_TRUE(e.setText("Exif.Image.Make", "Other"));
    EXPECT_TRUE(e.setText("Exif.Image.Artist", "Nguy\xE1\xBB\x85n"));
    EXPECT_FALSE(e.setText("Exif.Image.Orientation", "upright"));
    EXPECT_TRUE(e.setText("Exif.Photo.FNumber", "28/10"));
    EXPECT_TRUE(e.setText("Iptc.Application2.DateCreated", "19680000"));
    EXPECT_TRUE(e.setText("Iptc.Application2.ReleaseDate", "2026-10-29"));
    EXPECT_FALSE(e.setText("Iptc.Application2.ExpirationDate", "2026-13-01"));
    EXPECT_FALSE(e.setText("Iptc.Application2.ExpirationDate", "20261"));
    EXPECT_TRUE(e.setText("Xmp.dc.title", "Harbour"));
    EXPECT_TRUE(e.setText("Xmp.photoshop.Headline", "type=Seq literal"));
    EXPECT_TRUE(e.setText("Xmp.dc.creator", "An"));
    for (const char* unknown :
         {"Exif.Image.NoSuchTag", "Exif.NoGroup.Make", "Iptc.Application2.None",
          "Xmp.nosuchprefix.x", "Other.Image.Make", "Make"})
        EXPECT_FALSE(e.setText(unknown, "x")) << unknown;
    // Text the XMP toolkit would refuse when writing, losing the whole packet.
    EXPECT_FALSE(e.setText("Xmp.dc.source", "bell\x07"));
    EXPECT_FALSE(e.setText("Xmp.dc.source", "\xC3("));
    EXPECT_FALSE(e.setText("Iptc.Application2.City", "\xE1\xBB"));

    const Metadata m = e.result();
    EXPECT_EQ(m.text("Exif.Image.Make"), "Other");
    EXPECT_EQ(m.text("Exif.Image.Artist"), "Nguy\xE1\xBB\x85n");
    EXPECT_EQ(m.orientation(), 6);  // a refused value leaves the old one
    EXPECT_DOUBLE_EQ(*m.number("Exif.Photo.FNumber"), 2.8);
    EXPECT_EQ(m.text("Iptc.Application2.DateCreated"), "1968-00-00");
    EXPECT_EQ(m.text("Iptc.Application2.ReleaseDate"), "2026-10-29");
    EXPECT_EQ(m.text("Iptc.Application2.ExpirationDate"), std::nullopt);
    EXPECT_EQ(m.text("Xmp.dc.title"), "Harbour");
    EXPECT_NE(m.interpreted("Xmp.dc.title")->find("Titel"), std::string::npos);  // other language
    EXPECT_EQ(m.text("Xmp.photoshop.Headline"), "type=Seq literal");
    EXPECT_EQ(m.text("Xmp.dc.creator"), "An");
    EXPECT_EQ(valuesOf(m, "Iptc.Application2.Keywords"), std::vector<std::string>{"old"});
    EXPECT_EQ(m.text("Xmp.dc.source"), std::nullopt);
    EXPECT_EQ(m.text("Iptc.Application2.City"), std::nullopt);
    // The source is a value: editing a copy never changes it.
    EXPECT_EQ(source.text("Exif.Image.Make"), "Cam");
    EXPECT_EQ(source.text("Exif.Image.Artist"), std::nullopt);

    // An empty text removes; an empty editor gives an empty Metadata.
    MetadataEditor fresh{Metadata()};
    EXPECT_TRUE(fresh.setText("Iptc.Application2.City", "Hu\xE1\xBA\xBF"));
    EXPECT_FALSE(fresh.result().empty());
    EXPECT_TRUE(fresh.setText("Iptc.Application2.City", ""));
    EXPECT_FALSE(fresh.has("Iptc.Application2.City"));
    EXPECT_TRUE(fresh.result().empty());
}

TEST_F(MetadataTest, EditorCutsIptcAtItsSizeOnACharacterBoundary) {
    MetadataEditor e{Metadata()};
    std::string name;  // 40 three-byte characters; Byline holds 32 bytes
    for (int i = 0; i < 40; ++i)
        name += "\xE1\xBB\x85";
    ASSERT_TRUE(e.setText("Iptc.Application2.Byline", name));
    ASSERT_TRUE(e.setText("Iptc.Application2.Caption", std::string(2500, 'c')));
    ASSERT_TRUE(e.setText("Xmp.dc.description", name));
    const Metadata m = e.result();
    EXPECT_EQ(m.text("Iptc.Application2.Byline"), name.substr(0, 30));
    EXPECT_EQ(m.text("Iptc.Application2.Caption")->size(), 2000u);
    EXPECT_EQ(m.text("Xmp.dc.description"), name);  // XMP has no such limits
}

TEST_F(MetadataTest, EditorReplacesRepeatedDatasetsAndArrays) {
    MetadataEditor e(tagged({{"Iptc.Application2.Keywords", "old"}, {"Xmp.dc.subject", "old"}}));
    EXPECT_TRUE(e.setTexts("Iptc.Application2.Keywords", {"a", "", "b", "c"}));
    EXPECT_TRUE(e.setTexts("Xmp.dc.subject", {"x", "y"}));
    EXPECT_TRUE(e.setTexts("Xmp.dc.creator", {"An", "Binh"}));
    EXPECT_TRUE(e.setTexts("Iptc.Application2.ObjectName", {"one"}));
    EXPECT_FALSE(e.setTexts("Iptc.Application2.Headline", {"two", "values"}));
    EXPECT_FALSE(e.setTexts("Xmp.photoshop.Headline", {"text", "property"}));
    EXPECT_FALSE(e.setTexts("Xmp.dc.title", {"language", "alternative"}));
    EXPECT_FALSE(e.setTexts("Exif.Image.Artist", {"a"}));
    Metadata m = e.result();
    EXPECT_EQ(valuesOf(m, "Iptc.Application2.Keywords"), (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_EQ(m.interpreted("Xmp.dc.subject"), "x, y");
    EXPECT_EQ(m.interpreted("Xmp.dc.creator"), "An, Binh");
    EXPECT_EQ(m.text("Iptc.Application2.ObjectName"), "one");
    EXPECT_EQ(m.text("Iptc.Application2.Headline"), std::nullopt);

    EXPECT_TRUE(e.setTexts("Iptc.Application2.Keywords", {"", ""}));
    EXPECT_TRUE(e.setTexts("Xmp.dc.subject", {}));
    m = e.result();
    EXPECT_TRUE(valuesOf(m, "Iptc.Application2.Keywords").empty());
    EXPECT_EQ(m.text("Xmp.dc.subject"), std::nullopt);
}

TEST_F(MetadataTest, EditorBuildsXmpStructs) {
    const std::string contact = "Xmp.iptc.CreatorContactInfo";
    const std::string email = contact + "/Iptc4xmpCore:CiEmailWork";
    const std::string phone = contact + "/Iptc4xmpCore:CiTelWork";
    MetadataEditor e{Metadata()};
    EXPECT_FALSE(e.setText(email, "a@b.vn"));  // no struct to hold it yet
    EXPECT_TRUE(e.setStructField(contact, "Iptc4xmpCore:CiEmailWork", "a@b.vn"));
    EXPECT_TRUE(e.setStructField(contact, "Iptc4xmpCore:CiTelWork", "+84 90"));
    EXPECT_TRUE(e.setText(email, "c@d.vn"));
    EXPECT_FALSE(e.setStructField("Xmp.dc.title", "Iptc4xmpCore:CiEmailWork", "x"));
    ASSERT_TRUE(e.setText("Xmp.photoshop.Headline", "text"));
    EXPECT_FALSE(e.setStructField("Xmp.photoshop.Headline", "Iptc4xmpCore:CiEmailWork", "x"));
    EXPECT_FALSE(e.has("Xmp.dc.title"));
    EXPECT_FALSE(e.setStructField(contact, "nosuchprefix:Field", "x"));
    EXPECT_TRUE(e.has(contact));
    EXPECT_TRUE(e.hasAny(contact + "/"));

    // Written into a file, the struct reads back.
    const fs::path p = file("contact.jpg", tinyJpeg());
    std::string error;
    ASSERT_TRUE(e.result().writeInto(p, 16, 8, &error)) << error;
    const Metadata back = Metadata::read(p);
    EXPECT_EQ(back.text(email), "c@d.vn");
    EXPECT_EQ(back.text(phone), "+84 90");

    // The struct goes with its last field, or at once with all of them.
    EXPECT_TRUE(e.setStructField(contact, "Iptc4xmpCore:CiEmailWork", ""));
    EXPECT_TRUE(e.has(contact));
    EXPECT_TRUE(e.setStructField(contact, "Iptc4xmpCore:CiTelWork", ""));
    EXPECT_FALSE(e.hasAny(contact));
    EXPECT_TRUE(e.setStructField(contact, "Iptc4xmpCore:CiUrlWork", "https://b.vn"));
    e.remove(contact);
    EXPECT_FALSE(e.hasAny(contact));
    EXPECT_TRUE(e.has("Xmp.photoshop.Headline"));
}

TEST_F(MetadataTest, EditorRemovesByKeyAndKind) {
    const fs::path p = file("canon.jpg", readBytes(kCanon));
    tag(p, {{"Iptc.Application2.Keywords", "k"},
            {"Xmp.crs.Exposure2012", "+1.00"},
            {"Xmp.dc.creator", "Someone"}});
    MetadataEditor e(Metadata::read(p));
    ASSERT_TRUE(e.hasAny("Exif.Canon."));
    ASSERT_TRUE(e.has("Exif.Photo.MakerNote"));
    e.removeSourceOnly();
    EXPECT_FALSE(e.hasAny("Exif.Canon."));
    EXPECT_FALSE(e.hasAny("Exif.MakerNote."));
    EXPECT_FALSE(e.has("Exif.Photo.MakerNote"));
    EXPECT_FALSE(e.hasAny("Exif.Thumbnail."));
    EXPECT_FALSE(e.hasAny("Xmp.crs."));
    EXPECT_TRUE(e.has("Exif.Image.Model"));
    EXPECT_TRUE(e.has("Exif.Photo.ExposureTime"));
    EXPECT_TRUE(e.has("Iptc.Application2.Keywords"));
    EXPECT_TRUE(e.has("Xmp.dc.creator"));

    e.remove("Exif.Image.Model");
    EXPECT_FALSE(e.has("Exif.Image.Model"));
    EXPECT_TRUE(e.has("Exif.Image.Make"));
    e.removeIf([](std::string_view key) { return key.starts_with("Exif.Photo."); });
    EXPECT_FALSE(e.hasAny("Exif.Photo."));
    EXPECT_TRUE(e.has("Exif.Image.Make"));
    const Metadata m = e.result();
    EXPECT_EQ(m.text("Exif.Image.Make"), "Canon");
    EXPECT_EQ(m.number("Exif.Photo.ExposureTime"), std::nullopt);
    EXPECT_EQ(m.text("Iptc.Application2.Keywords"), "k");
}

TEST_F(MetadataTest, BadInputGivesEmpty) {
    const Bytes canon = readBytes(kCanon);
    std::mt19937 rng(7);
    Bytes noise(4096);
    for (auto& b : noise)
        b = uint8_t(rng());
    for (const fs::path& p :
         {dir_.path() / "missing.jpg", dir_.path(), file("zero.jpg", {}), file("noise.jpg", noise),
          file("cut.jpg", Bytes(canon.begin(), canon.begin() + 300)), fs::path("/dev/zero")})
        EXPECT_TRUE(Metadata::read(p).empty()) << p;
    EXPECT_TRUE(Metadata::fromBytes(nullptr, 0).empty());
    EXPECT_TRUE(Metadata::fromBytes(noise.data(), noise.size()).empty());
    // Only the header is read: losing the end of the image data loses nothing.
    const Bytes half(canon.begin(), canon.begin() + canon.size() / 2);
    EXPECT_EQ(Metadata::fromBytes(half.data(), half.size()).text("Exif.Image.Make"), "Canon");
}

TEST_F(MetadataTest, SurvivesMutatedHeaders) {
    const Bytes canon = readBytes(kCanon);
    std::mt19937 rng(1234);
    for (int round = 0; round < 300; ++round) {
        Bytes b(canon.begin(), canon.begin() + 16384);
        const int changes = 1 + int(rng() % 8);
        for (int k = 0; k < changes; ++k)
            b[rng() % 8192] = uint8_t(rng());
        const Metadata m = Metadata::fromBytes(b.data(), b.size());
        const Bytes app1 = m.exifApp1(64, 48);
        EXPECT_TRUE(app1.empty() || (app1.size() <= 65533 && app1[0] == 'E')) << round;
        EXPECT_GE(m.orientation(), 1);
        EXPECT_LE(m.orientation(), 8);
        m.entries();
        m.number("Exif.Photo.ExposureTime");
    }
}

TEST_F(MetadataTest, SharedAcrossThreads) {
    const fs::path p = file("xmp.jpg", readBytes(kCanon));
    tag(p, {{"Xmp.dc.creator", "Someone"}});
    const Metadata shared = Metadata::read(p);
    std::vector<std::thread> threads;
    std::atomic<int> wrong = 0;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 20; ++i) {
                const Metadata own = Metadata::read(p);
                if (own.text("Xmp.dc.creator") != "Someone" ||
                    shared.number("Exif.Photo.FNumber") != 2.7 || shared.entries().empty())
                    ++wrong;
            }
        });
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(wrong, 0);
}

}  // namespace
