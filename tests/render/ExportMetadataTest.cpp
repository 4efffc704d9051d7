#include "render/ExportMetadata.h"

#include <exiv2/exiv2.hpp>

#include <gtest/gtest.h>

#include "imaging/codec/JpegCodec.h"
#include "render/ImageWriter.h"
#include "tests/support/Fixtures.h"
#include "tests/support/MetadataTags.h"

namespace ql {
namespace {

using img::Metadata;
using testing::Tags;

const char* const kUtf8 = "\x1b%G";

img::Image picture(int width, int height) {
    return img::Image::filled(width, height, {0.2f, 0.4f, 0.6f, 1});
}

// What a camera leaves in its JPEG, the maker note and raw leftovers included.
const Tags kCamera = {
    {"Exif.Image.Make", "Quill Cam"},
    {"Exif.Image.Model", "QC-1"},
    {"Exif.Image.Orientation", "6"},
    {"Exif.Image.Artist", "Camera Owner"},
    {"Exif.Image.DNGVersion", "1 4 0 0"},
    {"Exif.Image.AsShotNeutral", "1/2 1/1 1/2"},
    {"Exif.Photo.ExposureTime", "1/250"},
    {"Exif.Photo.FNumber", "28/10"},
    {"Exif.Photo.DateTimeOriginal", "2026:10:29 18:30:00"},
    {"Exif.Photo.PixelXDimension", "64"},
    {"Exif.Photo.PixelYDimension", "48"},
    {"Exif.Photo.MakerNote", "81 67 0 1 2 3 4 5"},
    {"Iptc.Application2.Caption", "Camera caption"},
    {"Xmp.crs.Exposure2012", "+0.50"},
};

std::vector<std::string> valuesOf(const Metadata& m, const std::string& key) {
    std::vector<std::string> values;
    for (const auto& [k, v] : m.entries())
        if (k == key) values.push_back(v);
    return values;
}

std::vector<std::string> keysStarting(const Metadata& m, const std::string& prefix) {
    std::vector<std::string> keys;
    for (const auto& [k, v] : m.entries())
        if (k.starts_with(prefix)) keys.push_back(k);
    return keys;
}

class ExportMetadataTest : public ::testing::Test {
  protected:
    // A 64x48 JPEG written by the codec, then tagged through Exiv2.
    Metadata source(const Tags& tags) {
        const std::string path = dir_.file("source.jpg");
        img::writeJpeg(picture(64, 48), path, {});
        testing::setTags(path, tags);
        return Metadata::read(path);
    }
    // `metadata` written with a 40x30 picture in each format, as read back.
    std::vector<std::pair<std::string, Metadata>> exported(const Metadata& metadata) {
        std::vector<std::pair<std::string, Metadata>> out;
        for (const auto& [format, name] : {std::pair{ExportFormat::jpeg, "out.jpg"},
                                           {ExportFormat::tiff16, "out.tif"},
                                           {ExportFormat::png, "out.png"}}) {
            const std::string path = dir_.file(name);
            writeImage(picture(40, 30), path, format, 90, metadata);
            out.emplace_back(name, Metadata::read(path));
        }
        return out;
    }
    testing::TempDir dir_;
};

TEST_F(ExportMetadataTest, CarriesTheCameraAndAddsTheDescription) {
    const Metadata camera = source(kCamera);
    ASSERT_TRUE(camera.text("Exif.Photo.MakerNote"));
    ASSERT_TRUE(camera.text("Exif.Image.DNGVersion"));
    ASSERT_TRUE(camera.text("Xmp.crs.Exposure2012"));

    PhotoMeta meta;
    meta.title = "Cầu Rồng";
    meta.event = "Lễ hội pháo hoa";
    meta.creator = "Nguyễn Văn An";
    meta.creatorTitle = "Phóng viên";
    meta.credit = "Báo Sông Hàn";
    meta.source = "Ảnh gốc";
    meta.usageTerms = "Chỉ dùng cho báo in";
    meta.instructions = "Không cắt ảnh";
    meta.place = "Cầu Rồng";
    meta.city = "Đà Nẵng";
    meta.country = "Việt Nam";
    meta.dateCreated = "29/10/2026";
    meta.keywords = {"cầu", "đêm", "pháo hoa"};
    meta.email = "an@example.vn";
    meta.phone = "+84 90 000 0000";
    meta.website = "https://example.vn";
    meta.jobID = "J-2026-17";
    const Metadata props = exportProperties(camera, "  © 2026 Nguyễn Văn An \n", &meta);
    // Gone before the write path drops them again.
    EXPECT_EQ(props.text("Exif.Photo.MakerNote"), std::nullopt);
    EXPECT_EQ(props.text("Exif.Image.DNGVersion"), std::nullopt);
    EXPECT_EQ(props.text("Xmp.crs.Exposure2012"), std::nullopt);

    const std::string copyright = "© 2026 Nguyễn Văn An";
    const std::string contact = "Xmp.iptc.CreatorContactInfo/Iptc4xmpCore:";
    for (const auto& [name, m] : exported(props)) {
        SCOPED_TRACE(name);
        EXPECT_EQ(m.text("Exif.Image.Make"), "Quill Cam");
        EXPECT_EQ(m.text("Exif.Image.Model"), "QC-1");
        EXPECT_DOUBLE_EQ(m.number("Exif.Photo.ExposureTime").value_or(0), 1.0 / 250);
        EXPECT_DOUBLE_EQ(m.number("Exif.Photo.FNumber").value_or(0), 2.8);
        EXPECT_EQ(m.text("Exif.Photo.DateTimeOriginal"), "2026:10:29 18:30:00");
        EXPECT_EQ(m.text("Exif.Image.Orientation"), "1");
        EXPECT_EQ(m.integer("Exif.Photo.PixelXDimension"), 40);
        EXPECT_EQ(m.integer("Exif.Photo.PixelYDimension"), 30);
        EXPECT_EQ(m.text("Exif.Image.Software"), "Quillarium");
        EXPECT_EQ(m.text("Exif.Image.Copyright"), copyright);
        EXPECT_EQ(m.text("Iptc.Application2.Copyright"), copyright);
        EXPECT_EQ(m.text("Xmp.dc.rights"), copyright);

        EXPECT_EQ(m.text("Iptc.Application2.ObjectName"), "Cầu Rồng");
        EXPECT_EQ(m.text("Xmp.dc.title"), "Cầu Rồng");
        EXPECT_EQ(m.text("Iptc.Application2.Headline"), "Lễ hội pháo hoa");
        EXPECT_EQ(m.text("Iptc.Application2.Caption"), "Camera caption");
        EXPECT_EQ(m.text("Iptc.Application2.Byline"), "Nguyễn Văn An");
        EXPECT_EQ(m.text("Exif.Image.Artist"), "Nguyễn Văn An");
        EXPECT_EQ(m.text("Iptc.Application2.BylineTitle"), "Phóng viên");
        EXPECT_EQ(m.text("Iptc.Application2.Credit"), "Báo Sông Hàn");
        EXPECT_EQ(m.text("Iptc.Application2.Source"), "Ảnh gốc");
        EXPECT_EQ(m.text("Xmp.xmpRights.UsageTerms"), "Chỉ dùng cho báo in");
        EXPECT_EQ(m.text("Iptc.Application2.SpecialInstructions"), "Không cắt ảnh");
        EXPECT_EQ(m.text("Iptc.Application2.SubLocation"), "Cầu Rồng");
        EXPECT_EQ(m.text("Iptc.Application2.City"), "Đà Nẵng");
        EXPECT_EQ(m.text("Iptc.Application2.CountryName"), "Việt Nam");
        EXPECT_EQ(m.text("Iptc.Application2.TransmissionReference"), "J-2026-17");
        EXPECT_EQ(m.text("Iptc.Application2.DateCreated"), "2026-10-29");
        EXPECT_EQ(m.text("Xmp.photoshop.DateCreated"), "2026-10-29");
        EXPECT_EQ(valuesOf(m, "Iptc.Application2.Keywords"),
                  (std::vector<std::string>{"cầu", "đêm", "pháo hoa"}));
        EXPECT_EQ(m.interpreted("Xmp.dc.subject"), "cầu, đêm, pháo hoa");
        EXPECT_EQ(m.text(contact + "CiEmailWork"), "an@example.vn");
        EXPECT_EQ(m.text(contact + "CiTelWork"), "+84 90 000 0000");
        EXPECT_EQ(m.text(contact + "CiUrlWork"), "https://example.vn");
        EXPECT_EQ(m.text("Iptc.Envelope.CharacterSet"), kUtf8);

        EXPECT_EQ(m.text("Exif.Photo.MakerNote"), std::nullopt);
        EXPECT_TRUE(keysStarting(m, "Exif.MakerNote.").empty());
        EXPECT_EQ(m.text("Exif.Image.DNGVersion"), std::nullopt);
        EXPECT_EQ(m.text("Exif.Image.AsShotNeutral"), std::nullopt);
        EXPECT_TRUE(keysStarting(m, "Xmp.crs.").empty());
    }
}

TEST_F(ExportMetadataTest, NothingIsMadeUpForAFileWithoutExif) {
    img::writeJpeg(picture(64, 48), dir_.file("plain.jpg"), {});
    const Metadata plain = Metadata::read(dir_.file("plain.jpg"));
    ASSERT_TRUE(plain.empty());
    EXPECT_TRUE(exportProperties(plain, " \t", nullptr).empty());
    const PhotoMeta blank;
    EXPECT_TRUE(exportProperties(plain, "", &blank).empty());

    const Metadata props = exportProperties(plain, " An ", nullptr);
    for (const auto& [name, m] : exported(props)) {
        SCOPED_TRACE(name);
        EXPECT_EQ(m.text("Exif.Image.Copyright"), "An");
        EXPECT_EQ(m.text("Iptc.Application2.Copyright"), "An");
        EXPECT_EQ(m.text("Exif.Image.Software"), std::nullopt);
        EXPECT_EQ(m.text("Exif.Photo.PixelXDimension"), std::nullopt);
        if (name != "out.tif") {  // a TIFF's first IFD is its own structure
            EXPECT_EQ(keysStarting(m, "Exif."), std::vector<std::string>{"Exif.Image.Copyright"});
        }
    }

    // XMP alone is no first IFD either.
    const Metadata xmpOnly = source({{"Xmp.dc.creator", "Someone"}});
    EXPECT_EQ(exportProperties(xmpOnly, "", &blank).text("Exif.Image.Software"), std::nullopt);
}

TEST_F(ExportMetadataTest, BlankFieldsKeepWhatIsThere) {
    const Metadata camera = source({{"Exif.Image.Make", "Quill Cam"},
                                    {"Exif.Image.Artist", "Camera Owner"},
                                    {"Exif.Image.ImageDescription", "Camera description"},
                                    {"Iptc.Application2.Caption", "Camera caption"},
                                    {"Iptc.Application2.Headline", "Camera headline"},
                                    {"Iptc.Application2.Keywords", "cam"},
                                    {"Xmp.dc.description", "lang=x-default Camera caption"}});
    PhotoMeta meta;
    meta.caption = "  \n";
    meta.keywords = {" ", ""};
    meta.dateCreated = "someday";
    meta.event = "Sự kiện";
    meta.copyright = "Meta ©";
    Metadata m = exportProperties(camera, "Recipe ©", &meta);
    EXPECT_EQ(m.text("Exif.Image.Artist"), "Camera Owner");
    EXPECT_EQ(m.text("Exif.Image.ImageDescription"), "Camera description");
    EXPECT_EQ(m.text("Iptc.Application2.Caption"), "Camera caption");
    EXPECT_EQ(m.text("Xmp.dc.description"), "Camera caption");
    EXPECT_EQ(valuesOf(m, "Iptc.Application2.Keywords"), std::vector<std::string>{"cam"});
    EXPECT_EQ(m.text("Iptc.Application2.DateCreated"), std::nullopt);
    EXPECT_EQ(m.text("Iptc.Application2.Headline"), "Sự kiện");  // the event stands in
    // The photo's own copyright overrules the recipe's.
    EXPECT_EQ(m.text("Exif.Image.Copyright"), "Meta ©");
    EXPECT_EQ(m.text("Iptc.Application2.Copyright"), "Meta ©");
    EXPECT_EQ(m.text("Xmp.dc.rights"), "Meta ©");

    meta.headline = "Tin chính";
    m = exportProperties(camera, "", &meta);
    EXPECT_EQ(m.text("Iptc.Application2.Headline"), "Tin chính");
    EXPECT_EQ(m.text("Xmp.photoshop.Headline"), "Tin chính");
}

TEST_F(ExportMetadataTest, IptcIsCutAndMarkedUtf8OnlyWhenWritten) {
    PhotoMeta meta;
    meta.creator = "Nguyễn Thị Minh Khai Phường Bến Nghé";  // 46 bytes; Byline holds 32
    img::MetadataEditor e{Metadata()};
    write(meta, e);
    Metadata m = e.result();
    EXPECT_EQ(m.text("Iptc.Application2.Byline"), "Nguyễn Thị Minh Khai Phườ");
    EXPECT_EQ(m.text("Xmp.dc.creator"), meta.creator);
    EXPECT_EQ(m.text("Exif.Image.Artist"), meta.creator);
    EXPECT_EQ(m.text("Iptc.Envelope.CharacterSet"), kUtf8);

    // Usage terms have no IIM dataset: no IPTC, so no character set either.
    PhotoMeta terms;
    terms.usageTerms = "Web only";
    img::MetadataEditor x{Metadata()};
    write(terms, x);
    m = x.result();
    EXPECT_EQ(m.text("Xmp.xmpRights.UsageTerms"), "Web only");
    EXPECT_TRUE(keysStarting(m, "Iptc.").empty());
}

}  // namespace
}  // namespace ql
