#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tarvu.h"

namespace {

TEST(RecordLayout, EveryRecordHasTheSizeThatTheRuntimeAllocates) {
#define RECORD(record, bytes) EXPECT_EQ(sizeof(record), size_t{bytes}) << #record;
#define FIELD(record, field, offset, bytes)
#include "tests/include/record_layout.inc"
#undef FIELD
#undef RECORD
}

TEST(RecordLayout, EveryFieldLiesWhereTheRuntimeWritesIt) {
#define RECORD(record, bytes)
#define FIELD(record, field, offset, bytes)                                \
  EXPECT_EQ(offsetof(record, field), size_t{offset}) << #record "." #field; \
  EXPECT_EQ(sizeof(record::field), size_t{bytes}) << #record "." #field;
#include "tests/include/record_layout.inc"
#undef FIELD
#undef RECORD
}

struct Bytes {
  std::string name;
  size_t offset;
  size_t bytes;
};

TEST(RecordLayout, NoByteOfARecordBelongsToTwoFields) {
  std::vector<std::string> records;
  std::vector<std::vector<Bytes>> fields;
#define RECORD(record, bytes) records.emplace_back(#record), fields.emplace_back();
#define FIELD(record, field, offset, bytes)
#include "tests/include/record_layout.inc"
#undef FIELD
#undef RECORD
  const auto of = [&](const std::string &record) -> std::vector<Bytes> & {
    for (size_t i = 0; i < records.size(); ++i) {
      if (records[i] == record) return fields[i];
    }
    ADD_FAILURE() << record << " has no size";
    return fields.emplace_back();
  };
#define RECORD(record, bytes)
#define FIELD(record, field, offset, bytes) of(#record).push_back({#field, offset, bytes});
#include "tests/include/record_layout.inc"
#undef FIELD
#undef RECORD
  for (size_t i = 0; i < records.size(); ++i) {
    size_t end = 0;
    for (const Bytes &field : fields[i]) {
      EXPECT_GE(field.offset, end) << records[i] << "." << field.name;
      EXPECT_LT(field.offset - end, size_t{8}) << records[i] << "." << field.name << ": a field is missing in front of it";
      end = field.offset + field.bytes;
    }
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
