// tmp
#include <gtest/gtest.h>
