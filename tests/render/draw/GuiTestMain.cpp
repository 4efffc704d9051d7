// The tests of code that draws text: Qt's fonts need a QGuiApplication, and on a machine without
// a display the offscreen platform provides one.
#include <gtest/gtest.h>

#include <QGuiApplication>
#include <cstdlib>

int main(int argc, char** argv) {
    if (!std::getenv("QT_QPA_PLATFORM")) setenv("QT_QPA_PLATFORM", "offscreen", 1);
    QGuiApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
