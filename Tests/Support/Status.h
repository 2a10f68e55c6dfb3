// A call that must succeed.
#ifndef KIV_TEST_STATUS_H
#define KIV_TEST_STATUS_H

#include <KIVCoreServices2/KIVCS2Base.h>

#include <gtest/gtest.h>

#define EXPECT_OK(...) EXPECT_EQ((__VA_ARGS__), KIVCS2STATUS_OK)
#define ASSERT_OK(...) ASSERT_EQ((__VA_ARGS__), KIVCS2STATUS_OK)

#endif
