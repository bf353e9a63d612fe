// The column record, the accessors of OciColumn, and the mapping of Oracle's types; the chains and
// pools of LONG pieces, and dumps.
#include <algorithm>

#include "jvm_test.h"

namespace {

using Getter = jint (*)(JNIEnv*, jobject);
using Setter = void (*)(JNIEnv*, jobject, jint);

bool all_zero(const void* memory, std::size_t size) {
  const auto* first = static_cast<const char*>(memory);
  return std::all_of(first, first + size, [](char c) { return c == 0; });
}

class Column : public JvmTest {};

TEST_F(Column, ByteBufferGrowsInWordsAndNeverShrinks) {
  columndata column(0);
  // zeroed: bytes of a buffer that must be new; 0: the old one is kept.
  const std::tuple<sb4, sb4, std::size_t> steps[] = {
      {5, 5, 8}, {3, 5, 0}, {-1, 5, 0}, {5, 5, 0}, {6, 6, 12},   {7, 7, 12},
      {0, 0, 0}, {0, 0, 0}, {1, 1, 4},  {2, 2, 8}, {10, 10, 16}, {128, 128, 132}};
  for (const auto& [asked, length, zeroed] : steps) {
    SCOPED_TRACE(asked);
    column.allocByteArray(asked);
    EXPECT_EQ(column.byte_arrlen, length);
    if (length == 0) continue;
    if (zeroed == 0) {
      EXPECT_EQ(column.byte_arr[0], 'x');
      continue;
    }
    EXPECT_TRUE(all_zero(column.byte_arr, zeroed));
    std::fill_n(column.byte_arr, zeroed, 'x');
  }
}

TEST_F(Column, FetchArraysAreReplacedWhole) {
  columndata column(3);
  for (const int size : {3, 100, 2, 0, 1}) {
    column.allocFetchArrays(size);
    EXPECT_EQ(column.vectsize, size);
    const auto n = static_cast<std::size_t>(size);
    if (size == 0) continue;
    EXPECT_TRUE(all_zero(column.indpvect, n * 2) && all_zero(column.retlenvect, n * 2) &&
                all_zero(column.retcodevect, n * 2) && all_zero(column.long_arr, n * 4) &&
                all_zero(column.double_arr, n * 8));
    std::fill_n(column.double_arr, n, 1.0);
    std::fill_n(column.long_arr, n, 1);
    std::fill_n(column.indpvect, n, sb2{1});
    for (ub2* codes : {column.retlenvect, column.retcodevect}) std::fill_n(codes, n, ub2{1});
  }
}

TEST_F(Column, LifeOfTheRecord) {
  const jobject column = allocate("OciColumn");
  COLUMN(initialize)(env, column, 2, 33);
  columndata* const made = column_of(column);
  ASSERT_NE(made, nullptr);
  COLUMN(initialize)(env, column, -1, 33);
  EXPECT_NE(raised(), "") << "no record has a negative number of rows";
  EXPECT_EQ(column_of(column), made);
  EXPECT_EQ(column_of(column)->min_bind_size, 33);
  EXPECT_EQ(column_of(column)->vectsize, 2);
  const Getter getters[] = {COLUMN(position),    COLUMN(internalType), COLUMN(length),
                            COLUMN(precision),   COLUMN(scale),        COLUMN(level),
                            COLUMN(overloading), COLUMN(radix),        COLUMN(iomode)};
  std::vector<jint> values;
  for (Getter getter : getters) values.push_back(getter(env, column));
  EXPECT_THAT(values, ElementsAre(-1, -1, 0, 0, 0, 0, 0, 0, 0));
  EXPECT_EQ(COLUMN(hasDefault)(env, column), JNI_FALSE);
  const jbyteArray untouched = bytes("..");
  EXPECT_EQ(COLUMN(name)(env, column, untouched), 0);
  EXPECT_EQ(contents(untouched), "..");
  const std::string released =
      "\n===============  ~columndata destructor  col:=-1\n"
      "*** allocByteArray ***\n"
      "\n===============  ~columndata destructor  allocByteArray(0) done\n"
      "\n===============  ~columndata destructor  allocFetchArrays(0) done\n";
  const std::string done = "\n===============  ~columndata destructor: done\n";
  column_of(column)->allocByteArray(10);
  EXPECT_EQ(traced([&] { return COLUMN(native_1finalize)(env, column), 0; }), released + done);
  EXPECT_EQ(get_int(column, "coldata32"), 0);
  COLUMN(native_1finalize)(env, column);
  const jobject unread = new_column(1, SQLT_LNG, -1);
  column_of(unread)->longbuf_head = column_of(unread)->longbuf_tail = new longdata_node;
  EXPECT_THAT(
      traced([&] {
        COLUMN(native_1finalize)
        (env, unread);
      }),
      testing::StartsWith(released +
                          "\n\n\n\n ========== NOTE NOTE NOTE !!  in columndata destructor: "
                          "longbuf_tail is NOT NULL\n\n\n\n" +
                          done));
}

TEST_F(Column, SettersStoreTheirWidthAndGettersReadItBack) {
  const std::tuple<Setter, Getter, jint, jint> cases[] = {
      {COLUMN(setPosition), COLUMN(position), 70000, 70000},
      {COLUMN(setPosition), COLUMN(position), -5, -5},
      {COLUMN(setDbType), COLUMN(internalType), 65538, 2},
      {COLUMN(setDbType), COLUMN(internalType), -1, -1},
      {COLUMN(setLength), COLUMN(length), 70000, 70000},
      {COLUMN(setLength), COLUMN(length), -1, -1},
      {COLUMN(setPrecision), COLUMN(precision), 40000, -25536},
      {COLUMN(setScale), COLUMN(scale), -127, -127},
      {COLUMN(setScale), COLUMN(scale), 40000, -25536}};
  const jobject column = new_column();
  for (const auto& [set, get, value, result] : cases) {
    set(env, column, value);
    EXPECT_EQ(get(env, column), result) << value;
  }
  for (const int nullok : {0, 1, 2, -1, 65536}) {
    COLUMN(setNullOK)(env, column, nullok);
    EXPECT_EQ(COLUMN(nullAllowed)(env, column), (nullok & 0xFFFF) != 0) << nullok;
  }
  columndata* record = column_of(column);
  record->overloading = record->level = 0xFFFF;
  record->radix = record->hasdefault = record->iomode = 0xFF;
  for (const Getter getter : {COLUMN(overloading), COLUMN(level)}) {
    EXPECT_EQ(getter(env, column), 65535);
  }
  for (const Getter getter : {COLUMN(radix), COLUMN(iomode)}) EXPECT_EQ(getter(env, column), 255);
  EXPECT_EQ(COLUMN(hasDefault)(env, column), JNI_TRUE);
}

TEST_F(Column, NamesAreCutToTheirRoom) {
  const jobject column = new_column();
  const std::string long_name(200, 'n');
  const std::tuple<std::string, std::string, jint, std::string> cases[] = {
      {"EMPNO", "....", 4, "EMPN"},
      {"EMPNO", "..........", 5, "EMPNO....."},
      {"EMPNO", "", 0, ""},
      {"", "..", 0, ".."},
      {long_name, std::string(130, '.'), 128, std::string(128, 'n') + ".."},
      {std::string("AB\0CD", 5), "....", 2, "AB.."}};
  for (const auto& [set, room, result, expected] : cases) {
    const jbyteArray given = bytes(set);
    COLUMN(setName)(env, column, given);
    EXPECT_EQ(contents(given), set);
    const jbyteArray array = bytes(room);
    EXPECT_EQ(COLUMN(name)(env, column, array), result);
    EXPECT_EQ(contents(array), expected);
  }
}

TEST_F(Column, TypeMappingWithTheExternalTypeMappedUntilSet) {
  // Length 10 throughout. Columns: select type, select length, exchange type, bind length, name.
  // clang-format off
  const std::tuple<int, int, int, int, int, int, int, const char*> cases[] = {
      {1, 0, 0, 5, 31, 5, 11, "VARCHAR2_TYPE"}, {2, 0, 0, 5, 129, 4, 8, "NUMBER_TYPE"},
      {2, 5, 0, 5, 129, 3, 4, "NUMBER_TYPE"}, {2, 10, 2, 5, 129, 4, 8, "NUMBER_TYPE"},
      {2, 0, -127, 5, 129, 4, 8, "NUMBER_TYPE"}, {2, 65536, 0, 5, 129, 4, 8, "NUMBER_TYPE"},
      {2, 5, 65536, 5, 129, 3, 4, "NUMBER_TYPE"}, {3, 0, 0, 5, 129, 3, 4, "INTEGER_TYPE"},
      {4, 5, 0, 5, 129, 4, 8, "FLOAT_TYPE"}, {5, 0, 0, 5, 31, 5, 11, "STRING_TYPE"},
      {8, 0, 0, 8, 10, 8, 10, "LONG_TYPE"}, {11, 0, 0, 5, 24, 5, 24, "ROWID_TYPE"},
      {12, 0, 0, 12, 7, 12, 7, "DATE_TYPE"}, {23, 0, 0, 23, 10, 23, 10, "RAW_TYPE"},
      {24, 0, 0, 24, 10, 24, 10, "LONGRAW_TYPE"}, {96, 0, 0, 5, 31, 5, 11, "CHAR_TYPE"},
      {104, 0, 0, 5, 24, 5, 24, "ROWID_TYPE(SQLT_RDD)"}, {105, 0, 0, 5, 20, 5, 20, "MLSLABEL_TYPE"},
      {112, 0, 0, 112, -1, 0, 4, "UKNOWN_TYPE"}, {113, 0, 0, 113, -1, 0, 4, "UKNOWN_TYPE"},
      {0, 0, 0, 0, 0, 0, 0, "UKNOWN_TYPE"}, {-1, 0, 0, 0, 0, 0, 0, "UKNOWN_TYPE"},
      {65535, 0, 0, 0, 0, 0, 0, "UKNOWN_TYPE"}, {65537, 0, 0, 5, 31, 5, 11, "UKNOWN_TYPE"}};
  // clang-format on
  for (const auto& [type, prec, scale, select_type, select_length, type_seen, bind_length,
                    type_name] : cases) {
    SCOPED_TRACE(testing::Message() << type << " (" << prec << ", " << scale << ")");
    EXPECT_EQ(int2extSelectOciType(type, prec, scale), select_type);
    EXPECT_EQ(getSelectLength(type, prec, scale, 10), select_length);
    const jobject column = new_column(1, type);
    COLUMN(setPrecision)(env, column, prec);
    COLUMN(setScale)(env, column, scale);
    for (const int set : {-1, SQLT_LBI}) {
      column_of(column)->external_dbtype = set;
      EXPECT_EQ(COLUMN(externalType)(env, column), set == -1 ? type_seen : set);
      EXPECT_EQ(COLUMN(actualExternalType)(env, column), type_seen);
    }
    EXPECT_EQ(getParamLength(type, prec, scale, 10, 0), bind_length);
    EXPECT_STREQ(typeName(type), type_name);
  }
}

using Support = JvmTest;

TEST_F(Support, ChainWithAHeadAloneCountsAsEmpty) {
  const std::string text = "tail is NULL but head is NOT !!\n";
  longcol_node column;
  longdata_node piece;
  LongdataBufPool pool;
  longcol_node *columns = &column, *no_column = nullptr;
  longdata_node *pieces = &piece, *no_piece = nullptr;
  EXPECT_EQ(traced([&] {
              EXPECT_EQ(longcol_node::dequeue(&columns, &no_column), nullptr);
              EXPECT_EQ(std::exchange(columns, &column), nullptr);
              longcol_node::destroychain(&columns, &no_column);
              EXPECT_EQ(longdata_node::dequeue(&pieces, &no_piece), nullptr);
              longdata_node::releasechain(&pieces, &no_piece, &pool);
            }),
            " --  longcol_node::dequeue:  " + text + " --  destroychain:  " + text +
                " --  destroychain:  " + text);
  EXPECT_TRUE(columns == nullptr && pieces == nullptr);
  EXPECT_EQ(pool.bufPoolSP, 0);
}

TEST_F(Support, AFullPoolDestroysWhatItIsGiven) {
  LongdataBufPool pool;
  std::vector<longdata_node*> nodes;
  for (int i = 0; i < 513; ++i) nodes.push_back(LongdataBufPool::getBuf(1, &pool));
  for (int i = 0; i < 512; ++i) longdata_node::release(nodes[static_cast<std::size_t>(i)], &pool);
  EXPECT_EQ(pool.bufPoolSP, 512);
  EXPECT_EQ(traced([&] { LongdataBufPool::releaseBuf(nodes[512], &pool); }),
            "-- longdata_node destructor, free buffer for buffer: =0\n");
  LongdataBufPool::releaseBuf(nullptr, &pool);
  EXPECT_EQ(pool.bufPoolSP, 512);
}

TEST_F(Support, DumpFormat) {
  std::string all;
  for (int i = 0; i < 71; ++i) all += static_cast<char>(i < 25 ? 'a' : 'b');
  std::string hex24 = "\n    ";
  for (int i = 0; i < 24; ++i) hex24 += "61 ";
  const std::tuple<const char*, int, std::string> cases[] = {
      {nullptr, 7, "    sqlstr (7 bytes)\n    NULL\n"},
      {"abc", 0, "    sqlstr (0 bytes)\n    bytes:\n    text:\n"},
      {"\n\0\x7F\xE9 ~", 6,
       "    sqlstr (6 bytes)\n    bytes:\n    0A 00 7F E9 20 7E \n    text:\n    ???? ~\n"},
      {all.c_str(), 25,
       "    sqlstr (25 bytes)\n    bytes:" + hex24 + "\n    61 \n    text:\n    " +
           std::string(25, 'a') + "\n"},
      {all.c_str(), 71, "    text:\n    " + all.substr(0, 70) + "\n    b\n"}};
  for (const auto& [data, length, expected] : cases) {
    const std::string output = captured([&, &bytes = data, &size = length] {
      dump_bytes("sqlstr", reinterpret_cast<const text*>(bytes), size);
    });
    EXPECT_THAT(output, testing::EndsWith(expected));
  }
}

TEST_F(Support, DumpOfUnits) {
  const utext units[] = {'A', 0x0A, 0xE9, 0x20AC, 'z'};
  const std::string output = captured([&] {
    dump_utext("u", units, 5);
    dump_utext("n", nullptr, 2);
  });
  EXPECT_THAT(output, testing::StartsWith("    u (5 bytes)\n    chars:\n    41 0A E9 20AC 7A \n"
                                          "    text:\n    A??"));
  EXPECT_THAT(output, testing::EndsWith("z\n    n (2 bytes)\n    NULL\n"));
}

}  // namespace
