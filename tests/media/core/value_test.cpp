#include "media/core/value.h"

#include <gtest/gtest.h>

#include "media/core/format_description.h"
#include "media/core/sample_buffer.h"

namespace {

TEST(Value, ArraysAndObjectReferences) {
  MxFormatDescriptionRef d;
  ASSERT_EQ(MxFormatDescriptionCreate(nullptr, MxFourCC("text"), MxFourCC("text"), nullptr, &d),
            kNoErr);
  {
    MxValue array(MxArray{MxValue(d), MxValue(int32_t{3})});
    EXPECT_EQ(d->RetainCount(), 2);
    MxValue copy = array;  // arrays are shared, not copied
    EXPECT_EQ(d->RetainCount(), 2);
    EXPECT_EQ((*copy.GetArray())[0].GetObjectAs<MxFormatDescription>(), d.get());
    EXPECT_EQ((*copy.GetArray())[0].GetObjectAs<MxSampleBuffer>(), nullptr);
    EXPECT_EQ(copy, MxValue(MxArray{MxValue(d), MxValue(3.0)}));  // 3 equals 3.0
    EXPECT_FALSE(copy == MxValue(MxArray{MxValue(d)}));
  }
  EXPECT_EQ(d->RetainCount(), 1);
  EXPECT_FALSE(MxValue("1") == MxValue(int32_t{1}));
  EXPECT_EQ(MxValue(MxDictionary{{"a", MxValue(true)}}),
            MxValue(MxDictionary{{"a", MxValue(true)}}));
}

}  // namespace
