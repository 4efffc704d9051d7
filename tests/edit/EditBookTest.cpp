#include "edit/EditBook.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include <gtest/gtest.h>
#include <QCoreApplication>
#include <QTemporaryDir>

#include "edit/Autosave.h"
#include "edit/EditStore.h"
#include "edit/RatingStore.h"

namespace ql {
namespace {

namespace fs = std::filesystem;

/// Queued callbacks need an application; one serves every test.
void ensureApplication() {
    static int argc = 1;
    static char name[] = "edit_book_test";
    static char* argv[] = {name, nullptr};
    static QCoreApplication app(argc, argv);
}

void runQueued() {
    QCoreApplication::sendPostedEvents();
    QCoreApplication::processEvents();
}

Adjustments edit(double exposure) {
    Adjustments a;
    a.exposure = exposure;
    return a;
}

void writeText(const std::string& path, const std::string& text) {
    std::ofstream(path) << text;
}

std::string readText(const std::string& path) {
    std::ifstream in(path);
    return {std::istreambuf_iterator<char>(in), {}};
}

class EditBookTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ensureApplication();
        ASSERT_TRUE(home_.isValid());
        setenv("XDG_DATA_HOME", home_.path().toStdString().c_str(), 1);
        book.setOnChange([this] {
            ++changes;
            book.load(root() + "/a.jpg");  // the lock is free by now
        });
    }
    void TearDown() override { runQueued(); }  // no callback may outlive this fixture
    std::string root() const { return home_.path().toStdString(); }

    QTemporaryDir home_;
    EditBook book;
    int changes = 0;
};

TEST_F(EditBookTest, OnlyRealChangesFireLater) {
    const std::string photo = root() + "/a.jpg";
    book.save(edit(1), photo);
    EXPECT_EQ(changes, 0);  // queued, not run inside save
    runQueued();
    EXPECT_EQ(changes, 1);

    book.save(edit(1), photo);
    book.save(Adjustments::defaults(), root() + "/unedited.jpg");
    book.save(Adjustments::defaults(), photo);
    EXPECT_EQ(changes, 1);
    runQueued();
    EXPECT_EQ(changes, 2);
    EXPECT_TRUE(book.allEdits().empty());
}

TEST_F(EditBookTest, PathSpellingsShareKeyFileAndEdit) {
    fs::create_directories(root() + "/x");
    const std::string plain = root() + "/a.jpg", winding = root() + "/x/..//./a.jpg";
    EXPECT_EQ(EditStore::standardPath(winding), plain);
    EXPECT_EQ(EditStore::file(winding), EditStore::file(plain));
    book.save(edit(2), winding);
    EXPECT_EQ(book.load(plain), edit(2));
    EXPECT_EQ(book.allEdits().begin()->first, plain);
    EXPECT_EQ(EditStore::file("/photos/a.jpg"),
              root() +
                  "/Quillarium/Edits/"
                  "3a9ecb83c83c4d14a2ab4405fd310b78a877453c7e58bd9c8281901016f33010.json");
}

TEST_F(EditBookTest, ImportTakesEachOlderFileOnce) {
    const std::string hand = root() + "/hand.jpg", older = root() + "/older.jpg",
                      broken = root() + "/broken.jpg";
    book.save(edit(1), hand);
    runQueued();
    writeText(EditStore::file(hand), edit(5).encode());
    writeText(EditStore::file(older), edit(3).encode());
    writeText(EditStore::file(broken), "{not json");
    const fs::path retired =
        fs::path(EditStore::retiredFolder()) / fs::path(EditStore::file(older)).filename();
    writeText(retired.string(), "stale");

    book.importEarlierEdits({broken, hand, older});
    EXPECT_EQ(book.load(hand), edit(1));
    EXPECT_TRUE(fs::exists(EditStore::file(hand)));
    EXPECT_EQ(book.load(older), edit(3));
    EXPECT_FALSE(fs::exists(EditStore::file(older)));
    EXPECT_EQ(Adjustments::decode(readText(retired.string())), edit(3));
    EXPECT_FALSE(book.load(broken));
    EXPECT_EQ(readText(EditStore::file(broken)), "{not json");
    runQueued();
    EXPECT_EQ(changes, 2);

    EditBook next;
    next.importEarlierEdits({older});
    EXPECT_FALSE(next.load(older));
}

TEST_F(EditBookTest, RetiredRatingsKeepTheFirstBackup) {
    fs::create_directories(root() + "/Quillarium");
    writeText(RatingStore::file(), R"({"/p/a.jpg": 3, "/p/b.jpg": 5, "/q/c.jpg": 1, "/q/d": "x"})");
    const std::string original = readText(RatingStore::file());

    RatingStore::retire({"/p/a.jpg"});
    EXPECT_EQ(RatingStore::load(), (std::map<std::string, int>{{"/p/b.jpg", 5}, {"/q/c.jpg", 1}}));
    EXPECT_EQ(readText(RatingStore::backupFile()), original);
    RatingStore::retire({"/p/b.jpg"});
    EXPECT_EQ(RatingStore::load(), (std::map<std::string, int>{{"/q/c.jpg", 1}}));
    EXPECT_EQ(readText(RatingStore::backupFile()), original);

    writeText(RatingStore::file(), "[1, 2");
    EXPECT_TRUE(RatingStore::load().empty());
}

TEST_F(EditBookTest, SnapshotsAndMetaKeepNothingEmpty) {
    const std::string photo = root() + "/a.jpg";
    const EditSnapshot snap{Uuid::random(), "Ấm",
                            std::chrono::system_clock::time_point(std::chrono::seconds(978307290)) +
                                std::chrono::milliseconds(500),
                            edit(1)};
    const OrderedJson json = Codec<EditSnapshot>::write(snap);
    EXPECT_EQ(json.dump(), R"({"id":")" + snap.id.string() +
                               R"(","name":"Ấm","date":90.5,"adjustments":)" +
                               edit(1).toJson().dump() + "}");
    EditSnapshot back;
    EXPECT_TRUE(Codec<EditSnapshot>::read(Json::parse(json.dump()), back) && back == snap);
    for (const char* key : {"id", "name", "date", "adjustments"}) {
        Json damaged = Json::parse(json.dump());
        damaged.erase(key);
        EXPECT_FALSE(Codec<EditSnapshot>::read(damaged, back)) << key;
        damaged[key] = Json::array();
        EXPECT_FALSE(Codec<EditSnapshot>::read(damaged, back)) << key;
    }

    book.setSnapshots({snap}, photo);
    EXPECT_EQ(book.snapshots(photo), std::vector{snap});
    book.setSnapshots({}, photo);
    EXPECT_TRUE(book.allSnapshots().empty());

    PhotoMeta meta;
    meta.title = "Hoàng hôn";
    book.setMeta(meta, photo);
    book.setMeta(meta, photo);
    book.setMeta({}, photo);
    EXPECT_TRUE(book.allMetas().empty());
    runQueued();
    EXPECT_EQ(changes, 4);

    book.fill({{photo, edit(1)}, {root() + "/b.jpg", Adjustments::defaults()}}, {{photo, {}}},
              {{photo, {}}, {root() + "/./c.jpg", meta}});
    EXPECT_EQ(book.allEdits().size(), 1u);
    EXPECT_TRUE(book.allSnapshots().empty());
    EXPECT_EQ(book.meta(root() + "/c.jpg"), meta);
    runQueued();
    EXPECT_EQ(changes, 4);
}

TEST_F(EditBookTest, AutosaveReplacesAndRemoves) {
    const Uuid id = *Uuid::parse("0a1b2c3d-4e5f-6a7b-8c9d-aabbccddeeff");
    EXPECT_EQ(Autosave::fileFor(id),
              root() + "/Quillarium/Autosave/0A1B2C3D-4E5F-6A7B-8C9D-AABBCCDDEEFF.qlproj");
    Autosave::write(id, "{\"a\":1}");
    Autosave::write(id, "{}");
    EXPECT_EQ(readText(Autosave::fileFor(id)), "{}");
    Autosave::remove(id);
    EXPECT_FALSE(fs::exists(Autosave::fileFor(id)));
}

TEST_F(EditBookTest, UnwritableDataFolderLosesNothingInMemory) {
    const std::string blocker = root() + "/file", photo = root() + "/a.jpg";
    writeText(blocker, "x");
    setenv("XDG_DATA_HOME", blocker.c_str(), 1);
    EXPECT_NO_THROW({
        book.save(edit(4), photo);
        book.importEarlierEdits({photo, root() + "/b.jpg"});
        EditStore::retire(photo);
        RatingStore::retire({photo});
        Autosave::write(Uuid::random(), "{}");
        Autosave::remove(Uuid::random());
    });
    EXPECT_EQ(book.load(photo), edit(4));
}

TEST_F(EditBookTest, ConcurrentWritersLoseNothing) {
    constexpr int threads = 8, photos = 150, rounds = 4;
    std::vector<std::thread> workers;
    auto photoPath = [&](int t, int i) {
        return root() + "/t" + std::to_string(t) + "/" + std::to_string(i) + ".jpg";
    };
    // Round r writes r + 1 to photo i, except every third photo, which ends at the default.
    auto value = [](int r, int i) {
        return (i % 3 == 0 && r == rounds - 1) ? 0.0 : r + 1.0 + i * 1e-3;
    };
    for (int t = 0; t < threads; ++t)
        workers.emplace_back([&, t] {
            for (int r = 0; r < rounds; ++r)
                for (int i = 0; i < photos; ++i) {
                    book.save(edit(value(r, i)), photoPath(t, i));
                    book.load(photoPath(t, (i + 1) % photos));
                    if (i % 50 == 0) book.allEdits();
                }
        });
    for (auto& w : workers)
        w.join();
    EXPECT_EQ(book.allEdits().size(), size_t(threads * (photos - photos / 3)));
    for (int t = 0; t < threads; ++t)
        for (int i = 0; i < photos; ++i)
            EXPECT_EQ(book.load(photoPath(t, i)).value_or(Adjustments::defaults()),
                      edit(value(rounds - 1, i)));
}

}  // namespace
}  // namespace ql
