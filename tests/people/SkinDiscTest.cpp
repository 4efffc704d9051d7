// Placeholder replaced by the mask drawing tests.
#include <gtest/gtest.h>
