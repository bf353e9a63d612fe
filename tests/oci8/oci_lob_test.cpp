#include <atomic>
#include <random>

#include "oci_fixture.h"

namespace {

std::string wide(std::u16string_view text) {
  return {reinterpret_cast<const char*>(text.data()), text.size() * 2};
}

struct Lob {
  Lob(Client& client, ub2 lob_type, const std::string& rest = "where n = 1 for update")
      : c(&client), type(lob_type) {
    OCIDescriptorAlloc(c->env, reinterpret_cast<void**>(&at), OCI_DTYPE_LOB, 0, nullptr);
    EXPECT_EQ(rest.empty() ? 0 : fetch(rest), 0);
  }
  int fetch(const std::string& rest, sb2* indicator = nullptr) {
    EXPECT_EQ(c->prepare((type == SQLT_BLOB ? "select b from t " : "select c from t ") + rest), 0);
    EXPECT_EQ(c->define(1, &at, 4, type, indicator), OCI_SUCCESS);
    return c->error_of(c->execute(1));
  }
  int execute(const std::string& sql, ub2 bound_type, sb2* indicator = nullptr) {
    EXPECT_EQ(c->prepare(sql), OCI_SUCCESS);
    c->bind(1, &at, 4, bound_type, indicator);
    return c->error_of(c->execute(1));
  }
  /// What was read, with a '+' when there is more to come; the code of a failure.
  std::string read(ub4 amount, ub4 offset, size_t room, ub2 csid = OCI_UCS2ID, ub1 form = 1) const {
    std::string data(room + 1, '#');
    const sword status = OCILobRead(c->svc, c->err, at, &amount, offset, data.data(),
                                    static_cast<ub4>(room), nullptr, nullptr, csid, form);
    EXPECT_EQ(data.back(), '#');
    if (status < 0) return std::to_string(c->error_of(status));
    const size_t size = size_t{amount} * (type == SQLT_CLOB && csid == OCI_UCS2ID ? 2 : 1);
    return data.substr(0, size) + (c->code() == 3130 ? "+" : "");
  }
  int write(ub4 amount, ub4 offset, std::string data, ub1 piece = 0, ub2 csid = OCI_UCS2ID) {
    const sword status =
        OCILobWrite(c->svc, c->err, at, &amount, offset, data.data(), static_cast<ub4>(data.size()),
                    piece, nullptr, nullptr, csid, 1);
    written += amount;
    return status > 0 ? c->code() : c->error_of(status);
  }
  std::string all() const { return read(0, 1, 1 << 20); }
  int length() const {
    ub4 found = 0;
    const int code = c->error_of(OCILobGetLength(c->svc, c->err, at, &found));
    return code == OCI_SUCCESS ? static_cast<int>(found) : -code;
  }

  Client* c;
  ub2 type;
  OCILobLocator* at = nullptr;
  ub4 written = 0;
};

class Lobs : public LoggedInTest {
 protected:
  Lobs() {
    must("create table t (n number, b blob, c clob)");
    must("begin insert into t values (1, empty_blob(), empty_clob()); commit; end;");
  }
};

TEST_F(Lobs, BadLocatorsAndArgumentsAreRefused) {
  Lob fresh(c, SQLT_CLOB, ""), gone(c, SQLT_CLOB, ""), lob(c, SQLT_CLOB);
  EXPECT_EQ(OCIHandleFree(gone.at, OCI_DTYPE_LOB), OCI_INVALID_HANDLE);
  EXPECT_EQ(OCIDescriptorFree(gone.at, OCI_DTYPE_LOB), OCI_SUCCESS);
  EXPECT_EQ(OCIDescriptorFree(gone.at, OCI_DTYPE_LOB), OCI_INVALID_HANDLE);
  std::pair<void*, int> bad[] = {{fresh.at, 22275}, {gone.at, -2}, {c.err, -2}, {nullptr, -2}};
  for (const auto& [address, code] : bad) {
    Lob use = fresh;
    use.at = static_cast<OCILobLocator*>(address);
    EXPECT_EQ(use.length(), -code);
    EXPECT_EQ(use.read(1, 1, 10), std::to_string(code));
    EXPECT_EQ(use.write(1, 1, "ab"), code);
    EXPECT_EQ(OCILobAssign(c.env, c.err, use.at, &gone.at), OCI_INVALID_HANDLE);
    EXPECT_EQ(use.execute("insert into t (n, c) values (3, :1)", SQLT_CLOB), 22275);
    EXPECT_EQ(use.fetch("where n = 1"), code == 22275 ? 0 : 22275);
  }
  EXPECT_EQ(lob.read(1, 0, 4) + lob.read(1, 1, 0) + lob.read(1, 1, 4, 0, 3), "248012480124801");
  const std::tuple<ub4, ub4, const char*, ub1> writes[] = {
      {1, 0, "ab", 0}, {0, 1, "ab", 0},  {2, 1, "ab", 0},  {1, 1, "ab", 4},
      {1, 1, "ab", 3}, {1, 1, "abc", 1}, {1, 1, "abab", 1}};
  for (const auto& [n, at, data, piece] : writes) EXPECT_EQ(lob.write(n, at, data, piece), 24801);
  EXPECT_EQ(lob.read(1, 1, 4, 31), "12705");
  EXPECT_EQ(lob.write(3, 1, "abab", OCI_FIRST_PIECE), 3129);
  EXPECT_EQ(lob.write(0, 1, "", OCI_LAST_PIECE), 22993);
  EXPECT_EQ(lob.length(), 2);
  ub2 id = 0;
  ub1 form = 0;
  OCILobCharSetId(c.env, c.err, lob.at, &id);
  OCILobCharSetForm(c.env, c.err, lob.at, &form);
  EXPECT_EQ(id * form, 871);
}

TEST_F(Lobs, LocatorsAreNamesAndBoundOnesGiveCopies) {
  Lob lob(c, SQLT_CLOB), copy(c, SQLT_CLOB, ""), other(c, SQLT_CLOB, "");
  ASSERT_EQ(lob.write(3, 1, wide(u"one")), 0);
  ASSERT_EQ(OCILobAssign(c.env, c.err, lob.at, &copy.at), OCI_SUCCESS);
  ASSERT_EQ(OCILobAssign(c.env, c.err, copy.at, &copy.at), OCI_SUCCESS);
  EXPECT_EQ(lob.execute("insert into t (n, c) values (3, :1)", SQLT_CLOB), 0);
  EXPECT_EQ(lob.execute("begin insert into t (n, c) values (4, :1); end;", SQLT_CLOB), 0);
  EXPECT_EQ(lob.execute("update t set c = :1 where n = 2", SQLT_BLOB), 932);
  ASSERT_EQ(OCIDescriptorFree(lob.at, OCI_DTYPE_LOB), OCI_SUCCESS);
  ASSERT_EQ(copy.write(3, 1, wide(u"two")), 0);
  for (const char* row : {"where n = 3", "where n = 4"}) {
    EXPECT_EQ(other.fetch(row) == 0 ? other.all() : "", wide(u"one")) << row;
  }
  sb2 null = -1;
  EXPECT_EQ(lob.execute("update t set c = :1 where n = 3", SQLT_CLOB, &null), 0);
  EXPECT_EQ(other.fetch("where n = 3"), 1405);
  EXPECT_EQ(other.length(), -22275);  // not the value of the row before
  EXPECT_EQ(other.fetch("where n = 3", &null) + null, -1);
  EXPECT_EQ(other.execute("begin select c into :1 from t where n = 1; end;", SQLT_CLOB), 0);
  EXPECT_EQ(other.all(), wide(u"two"));
}

// Every offset and amount around the borders of chunks, then places at random; beside a query that
// is over, and one that has a row left.
TEST_F(Lobs, ReadsAndWritesMatchAModel) {
  std::mt19937 random(20010917);
  must("insert into t values (2, null, null)");
  must("commit");
  for (const auto& [type, rest] : {std::pair(SQLT_BLOB, "where n = 1 for update"),
                                   {SQLT_CLOB, "where n = 1 for update"},
                                   {SQLT_BLOB, "order by n for update"}}) {
    must("rollback");
    Lob lob(c, type, rest);
    const ub4 unit = type == SQLT_CLOB ? 2 : 1, chunk = 32768 / unit;  // of the store
    const std::string gap = type == SQLT_CLOB ? wide(u" ") : std::string(1, 0);
    std::string model;
    for (ub4 i = 0; i < 400; ++i) {
      const ub4 border = std::max(chunk * (i / 6 / 3) + i / 6 % 3, 1U) - 1;
      const ub4 place = i < 54 ? border : random() % (9 * chunk);
      const ub4 amount = i % 6 < 4 ? chunk - 1 + i % 3 : 1 + random() % 100;
      const size_t from = size_t{place} * unit, size = size_t{amount} * unit;
      std::string data(size, static_cast<char>(1 + i % 255));
      // The store goes back and forth between a byte and two for each character.
      for (size_t high = 1; high < size && unit == 2 && i % 5 != 0; high += 2) data[high] = 0;
      if (i % 2 == 0) {
        ASSERT_EQ(lob.write(amount, place + 1, data), 0);
        while (model.size() < from) model += gap;
        model.replace(from, std::min(size, model.size() - from), data);
      }
      const std::string expected = model.substr(std::min(from, model.size()), size);
      ASSERT_TRUE(lob.read(amount, place + 1, size) == expected) << i;
    }
    EXPECT_TRUE(lob.all() == model);
  }
}

// Texts are cut everywhere: by the pieces of a write, by the buffers of a read.
TEST_F(Lobs, TextIsConvertedAcrossTheBordersOfPieces) {
  const std::tuple<ub2, std::string, std::u16string> cases[] = {
      {871, "a\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80z", u"a\u00e4\u20ac\U0001f600z"},
      {0, "\xed\xa0\xbd\x7f", u"\xd83d\x7f"},
      {873, "\xc3(\xff\xe2\x82", u"\xfffd(\xfffd\xfffd"},
      {873, "\xf5\xc0\xaf\xe0\x80\x80", u"\xfffd\xfffd\xfffd\xfffd"},
      {1, "a\xe4z", u"a?z"},
      {OCI_UCS2ID, wide(u"x\U0001f600y"), u"x\U0001f600y"}};
  for (const auto& [csid, bytes, kept] : cases) {
    const auto total = static_cast<ub4>(kept.size());
    for (size_t cut = 0; cut <= bytes.size(); cut += csid == OCI_UCS2ID ? 2 : 1) {
      must("update t set c = empty_clob() where n = 1");
      Lob lob(c, SQLT_CLOB);
      const ub4 announced = cut % 4 == 0 ? 0 : total;
      EXPECT_EQ(lob.write(announced, 1, bytes.substr(0, cut), OCI_FIRST_PIECE, csid), 3129);
      EXPECT_EQ(lob.write(0, 9, bytes.substr(cut), OCI_LAST_PIECE, csid), 0);
      EXPECT_EQ(lob.written, total);
      EXPECT_EQ(lob.write(total + 1, 1, bytes, OCI_ONE_PIECE, csid), 24801);
      EXPECT_EQ(lob.all(), wide(kept)) << bytes << cut;
      std::string back = lob.read(0, 1, 4 + cut, csid);
      for (; back.back() == '+'; back += lob.read(0, 1, 4 + cut, csid)) back.pop_back();
      EXPECT_EQ(lob.write(total, 1, back, OCI_ONE_PIECE, csid), 0);
      EXPECT_EQ(lob.all(), wide(kept)) << cut;
    }
  }
  Lob lob(c, SQLT_CLOB);  // pairs across the borders of what is converted at once
  std::string pairs = "x";
  while (pairs.size() < 90001) pairs += "\xf0\x9f\x98\x80";
  EXPECT_EQ(lob.write(45001, 1, pairs, OCI_ONE_PIECE, 871), 0);
  EXPECT_TRUE(lob.read(0, 1, pairs.size(), 871) == pairs);
}

TEST_F(Lobs, AReadGivesOneStateOfAValueThatOthersChange) {
  constexpr ub4 kSize = 100000;  // several times what is converted at once
  ASSERT_EQ(Lob(c, SQLT_CLOB).write(kSize, 1, std::string(kSize, 'a'), 0, 873), 0);
  must("commit");
  std::atomic<bool> stop = false;
  std::thread writer([&] {
    Client other(database_);
    for (char fill = 'b'; !stop; fill = fill == 'b' ? 'a' : 'b') {
      EXPECT_EQ(Lob(other, SQLT_CLOB).write(kSize, 1, std::string(kSize, fill), 0, 873), 0);
      EXPECT_EQ(other.run("commit"), OCI_SUCCESS);
    }
  });
  const Lob lob(c, SQLT_CLOB, "where n = 1");
  bool whole = true;
  for (int i = 0; i < 500 && whole; ++i) {
    const std::string found = lob.read(kSize, 1, kSize, 873);
    whole = found == std::string(kSize, found[0]);
  }
  stop = true;
  writer.join();
  EXPECT_TRUE(whole);
}

TEST_F(Lobs, AnOpenTransferKeepsTheSessionUntilItEnds) {
  Lob lob(c, SQLT_BLOB), other(c, SQLT_BLOB);
  ASSERT_EQ(lob.write(8, 1, "abcdefgh"), 0);
  must("commit");
  const auto is_busy = [&] {
    EXPECT_EQ(c.error_of(c.run("commit")) + lob.length(), 0);
    EXPECT_EQ(other.read(1, 1, 1) + std::to_string(lob.write(1, 1, "x")), "31273127");
  };
  EXPECT_EQ(lob.read(7, 2, 3), "bcd+");
  is_busy();
  EXPECT_EQ(lob.read(1, 1, 3), "efg+");
  EXPECT_EQ(lob.read(1, 1, 3), "h");
  EXPECT_EQ(lob.read(9, 5, 4), "efgh");  // ends with the buffer: nothing is open
  const std::function<sword()> ends[] = {
      [&] { return OCIBreak(c.svc, c.err); },
      [&] { return OCITransRollback(c.svc, c.err, OCI_DEFAULT); },
      [&] { return OCILobAssign(c.env, c.err, Lob(c, SQLT_BLOB, "").at, &lob.at); },
      [&] { return OCIDescriptorFree(lob.at, OCI_DTYPE_LOB); }};
  for (const auto& end : ends) {
    ASSERT_EQ(lob.fetch("where n = 1 for update"), 0);
    ASSERT_EQ(lob.write(0, 3, "XY", OCI_FIRST_PIECE), 3129);
    is_busy();
    EXPECT_EQ(end(), OCI_SUCCESS);
    EXPECT_EQ(other.write(0, 1, "Z", OCI_NEXT_PIECE), 24801);
    must("rollback");
    EXPECT_EQ(other.all(), "abcdefgh");
  }
}

}  // namespace
