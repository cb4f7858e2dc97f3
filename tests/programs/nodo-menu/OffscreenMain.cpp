#include <QApplication>

#include <gtest/gtest.h>

// Windows are drawn into memory, so that no display is needed, also where only the tests' names are
// asked for.
int main(int argc, char** argv) {
  qputenv("QT_QPA_PLATFORM", "offscreen");
  const QApplication application(argc, argv);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
