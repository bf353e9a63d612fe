// LONG chains, the buffer pool, dumps and names.
#include "jvm_test.h"

namespace {

class Support : public JvmTest {};

TEST_F(Support, ColumnChainKeepsOrderAndNumbers) {
  longcol_node* head = nullptr;
  longcol_node* tail = nullptr;
  longcol_node* const nodes[] = {new longcol_node, new longcol_node, new longcol_node};
  for (longcol_node* node : nodes) longcol_node::queue(&head, &tail, node);
  EXPECT_EQ(head, nodes[2]);
  EXPECT_EQ(head->prev, nodes[1]);
  EXPECT_EQ(longcol_node::dequeue(&head, &tail), nodes[0]);
  EXPECT_EQ(tail, nodes[1]);
  EXPECT_EQ(tail->prev, nullptr);
  EXPECT_EQ(traced([&] { longcol_node::destroychain(&head, &tail); }),
            "--- longcol_node::destroychain  destroy number: 1\n"
            "--- longcol_node::destroychain  destroy number: 2\n");
  EXPECT_EQ(longcol_node::dequeue(&head, &tail), nullptr);
  EXPECT_EQ(head, nullptr);
  delete nodes[0];
}

TEST_F(Support, ChainWithAHeadAloneCountsAsEmpty) {
  const std::string text = "tail is NULL but head is NOT !!\n";
  longcol_node column;
  longdata_node piece;
  LongdataBufPool pool;
  longcol_node *columns = &column, *no_column = nullptr;
  longdata_node *pieces = &piece, *no_piece = nullptr;
  EXPECT_EQ(traced([&] { longcol_node::dequeue(&columns, &no_column); }),
            " --  longcol_node::dequeue:  " + text);
  EXPECT_EQ(std::exchange(columns, &column), nullptr);
  EXPECT_EQ(longdata_node::dequeue(&pieces, &no_piece), nullptr);
  EXPECT_EQ(pieces, &piece) << "the head is not looked at";
  EXPECT_EQ(traced([&] {
              longcol_node::destroychain(&columns, &no_column);
              longdata_node::releasechain(&pieces, &no_piece, &pool);
            }),
            " --  destroychain:  " + text + " --  destroychain:  " + text);
  EXPECT_TRUE(columns == nullptr && pieces == nullptr);
  EXPECT_EQ(pool.bufPoolSP, 0);
}

TEST_F(Support, PiecesGoToThePoolAndComeBackNewestFirst) {
  auto* pool = new LongdataBufPool;
  longdata_node* head = nullptr;
  longdata_node* tail = nullptr;
  std::vector<longdata_node*> nodes;
  std::string output = traced([&] {
    for (const sb4 size : {4, 2}) {
      nodes.push_back(longdata_node::queue(&head, &tail, 4, pool));
      EXPECT_EQ(nodes.back()->buf_size, 0);
      nodes.back()->buf_size = size;
    }
    EXPECT_EQ(longdata_node::getlongsize(tail), 6);
    longdata_node::releasechain(&head, &tail, pool);
    EXPECT_EQ(LongdataBufPool::getBuf(4, pool), nodes[1]);
  });
  EXPECT_EQ(output,
            "BufPool:getbuf: bufPoolSP = 0, return new char buf\n"
            "BufPool:getbuf: bufPoolSP = 0, return new char buf\n"
            "--- longdata_node::releasechain release number: 0\n"
            "BufPool:releaseBuf: bufPoolSP = 0, push char buf onto stack and add one\n"
            "--- longdata_node::releasechain release number: 1\n"
            "BufPool:releaseBuf: bufPoolSP = 1, push char buf onto stack and add one\n"
            "BufPool:getbuf: bufPoolSP = 2, subtract one and return char buf from stack\n");
  EXPECT_EQ(head, nullptr);
  EXPECT_EQ(tail, nullptr);
  EXPECT_EQ(longdata_node::getlongsize(tail), 0);
  EXPECT_EQ(nodes[1]->buf_size, 0);
  EXPECT_EQ(longdata_node::queue(&head, &tail, 4, pool), nodes[0]);
  EXPECT_EQ(nodes[0]->buf_num, 0) << "a reused node starts the new chain";
  EXPECT_EQ(pool->bufPool[0], nullptr);
  longdata_node::release(longdata_node::dequeue(&head, &tail), pool);
  longdata_node::release(nullptr, pool);
  EXPECT_EQ(pool->bufPoolSP, 1);
  EXPECT_EQ(traced([&] { delete pool; }),
            "BufPool: checking bufPool entry: 0\n"
            "BufPool: deleteing bufPool entry: 0  PTR\n"
            "-- longdata_node destructor, free buffer for buffer: =0\n"
            "BufPool: now delete the bufPool object\n");
  delete nodes[1];
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
  const std::string hex24 =
      "\n    61 61 61 61 61 61 61 61 61 61 61 61 61 61 61 61 61 61 61 61 61 "
      "61 61 61 ";
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

TEST_F(Support, ConstantNames) {
  const auto names = [](const char* (*name)(int), int first, int last) {
    Lines all;
    for (; first <= last; ++first) all.emplace_back(name(first));
    return all;
  };
  EXPECT_THAT(names(pieceName, -1, 4),
              ElementsAre("UNKNOWN PIECE TYPE", "OCI_ONE_PIECE", "OCI_FIRST_PIECE",
                          "OCI_NEXT_PIECE", "OCI_LAST_PIECE", "UNKNOWN PIECE TYPE"));
  EXPECT_THAT(names(bindTypeName, 4, 6),
              ElementsAre("UNKNOWN BIND TYPE", "OCI_HTYPE_BIND", "OCI_HTYPE_DEFINE"));
  EXPECT_THAT(names(paramTypeName, 1, 3),
              ElementsAre("OCI_PARAM_IN", "OCI_PARAM_OUT", "UNKNOWN PARAM TYPE"));
}

}  // namespace
