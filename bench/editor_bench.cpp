// A slider drag in the editor session: 60 writes of the edit, 16 ms apart, on the 2400-pixel
// proxy of a 24-megapixel JPEG made from the sample shoot, with a real event loop.
//
// Reports how many preview renders ran, the time from the last write to the last published
// image (what the photographer waits for when the hand stops), and the most renders that were
// ever in flight at once.
//
// Usage: ql_bench_editor [work-folder]   (default: a folder under /tmp, removed at the end)

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>
#include <QTimer>
#include <cstdio>
#include <filesystem>

#include "BenchPhotos.h"
#include "BenchProcess.h"
#include "app/EditorModel.h"

int main(int argc, char** argv) {
    using namespace ql;
    namespace fs = std::filesystem;
    QCoreApplication app(argc, argv);
    const bench::WorkFolder work(argc, argv, "editor");
    const fs::path& dir = work.path();
    ::setenv("XDG_DATA_HOME", (dir / "data").c_str(), 1);
    const bench::BenchPhotos photos = bench::writeBenchPhotos(dir);

    EditBook book;
    EditorModel editor(book);
    int published = 0;
    qint64 lastPublished = 0;
    QElapsedTimer clock;
    clock.start();
    QObject::connect(&editor, &EditorModel::displayed, [&] {
        ++published;
        lastPublished = clock.nsecsElapsed();
    });
    const auto until = [&](const std::function<bool()>& done) {
        while (!done()) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
            QThread::usleep(500);
        }
    };
    editor.open(photos.jpeg);
    until([&] { return published > 0 && !editor.rendering(); });
    editor.waitForQueue();

    // A typical edit: the tone sliders and vibrance, as a drag of the exposure slider.
    Adjustments edit;
    edit.contrast = 15, edit.highlights = -30, edit.shadows = 25, edit.vibrance = 20;
    for (int round = 0; round < 3; ++round) {
        const int rendersBefore = editor.rendersRun(), publishedBefore = published;
        int writes = 0;
        qint64 lastWrite = 0;
        QTimer drag;
        drag.setInterval(16);
        QObject::connect(&drag, &QTimer::timeout, [&] {
            edit.exposure = 0.01 * (writes + 1) * (round % 2 ? -1 : 1);
            editor.setAdjustments(edit);
            lastWrite = clock.nsecsElapsed();
            if (++writes == 60) drag.stop();
        });
        drag.start();
        until([&] { return writes == 60 && !editor.rendering(); });
        editor.waitForQueue();
        QCoreApplication::processEvents();
        const int renders = editor.rendersRun() - rendersBefore;
        std::printf(
            "drag %d: 60 writes, %d renders, %d published, last write to last image "
            "%.0f ms (target <= 120), at most %d in flight\n",
            round + 1, renders, published - publishedBefore, (lastPublished - lastWrite) / 1e6,
            editor.mostRendersInFlight());
    }
    return 0;
}
