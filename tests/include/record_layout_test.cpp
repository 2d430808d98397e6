#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "tarvu.h"

namespace {

/// One row of the table beside what the compiler makes of the header.
struct Record {
  const char *name;
  size_t bytes;
  size_t compiled_bytes;
};
struct Field {
  const char *record;
  const char *name;
  size_t offset;
  size_t bytes;
  size_t compiled_offset;
  size_t compiled_bytes;
};

constexpr Record kRecords[] = {
#define RECORD(record, bytes) {#record, bytes, sizeof(record)},
#define FIELD(record, field, offset, bytes)
#include "tests/include/record_layout.inc"
#undef FIELD
#undef RECORD
};

constexpr Field kFields[] = {
#define RECORD(record, bytes)
#define FIELD(record, field, offset, bytes) \
  {#record, #field, offset, bytes, offsetof(record, field), sizeof(record::field)},
#include "tests/include/record_layout.inc"
#undef FIELD
#undef RECORD
};

TEST(RecordLayout, EveryRecordHasTheSizeThatTheRuntimeAllocates) {
  for (const Record &record : kRecords) EXPECT_EQ(record.compiled_bytes, record.bytes) << record.name;
}

TEST(RecordLayout, EveryFieldLiesWhereTheRuntimeWritesIt) {
  for (const Field &field : kFields) {
    EXPECT_EQ(field.compiled_offset, field.offset) << field.record << "." << field.name;
    EXPECT_EQ(field.compiled_bytes, field.bytes) << field.record << "." << field.name;
  }
}

TEST(RecordLayout, NoFieldIsMissingFromTheTableAndNoByteBelongsToTwo) {
  for (const Record &record : kRecords) {
    size_t end = 0;
    for (const Field &field : kFields) {
      if (std::string_view(field.record) != record.name) continue;
      EXPECT_GE(field.offset, end) << record.name << "." << field.name;
      EXPECT_LT(field.offset - end, size_t{8}) << record.name << "." << field.name << ": a field is missing before it";
      end = field.offset + field.bytes;
    }
    EXPECT_LT(record.bytes - end, size_t{8}) << record.name << ": a field is missing at its end";
  }
}

TEST(RecordLayout, TypeCodesAndResultCodesHaveTheirValues) {
  EXPECT_EQ(sizeof(NN_AI_IO_TYPE), size_t{4});
  EXPECT_EQ(sizeof(_QX_RESULT), size_t{4});
  EXPECT_EQ(NN_AI_IO_TYPE_INVALID, -1);
  EXPECT_EQ(NN_AI_IO_TYPE_INT8, 0);
  EXPECT_EQ(NN_AI_IO_TYPE_UINT8, 1);
  EXPECT_EQ(NN_AI_IO_TYPE_INT16, 2);
  EXPECT_EQ(NN_AI_IO_TYPE_UINT16, 3);
  EXPECT_EQ(NN_AI_IO_TYPE_32BIT, 4);
  EXPECT_EQ(NN_AI_IO_TYPE_UINT32, 5);
  EXPECT_EQ(QX_OK, 0);
  EXPECT_EQ(QX_ERR_UNSUPPORTED, -1);
  EXPECT_EQ(QX_ERR_OVER_LIMIT, -10);
  EXPECT_EQ(QX_ERR_PARAM, -34);
  EXPECT_EQ(QX_ERR_NO_MEMORY, -37);
}

}  // namespace
