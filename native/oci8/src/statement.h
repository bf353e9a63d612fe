// The statement handle: a prepared text, its run in a database, where the rows go, and the state
// of a row that is fetched in pieces.
// A handle goes through these states: no text (nothing prepared), a text without a database, a text
// that is prepared in the database where it ran or was described last (`attachment_` with `run_` or
// `block_`), and there a cursor with or without rows. What leads back: another prepare, the end of
// the session, or the handle's own.
#ifndef OCI8_STATEMENT_H
#define OCI8_STATEMENT_H

#include <atomic>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "bind.h"
#include "block.h"
#include "define.h"
#include "engine.h"
#include "handles.h"
#include "sql_text.h"

namespace oci8 {

/// Codes of the calls, as OCI_ATTR_FNCODE reports the last one on a statement.
enum class CallCode : ub4 {
  Prepare = 13,
  BindDynamic = 17,
  Execute = 21,
  Fetch = 28,
  ParamGet = 57,
  GetPieceInfo = 58,
  SetPieceInfo = 61,
  DefineByPos = 65,
  BindByPos = 66
};

/// A select-list column of a described statement, which owns the descriptor.
struct ParameterHandle {
  const ColumnInfo* column = nullptr;
};

/// The buffer that the caller offers for a piece.
struct PieceBuffer {
  ub1* data = nullptr;
  ub4* length = nullptr;  // in: room, out: bytes of the piece
  sb2* indicator = nullptr;
  ub2* code = nullptr;
};

class StatementHandle : public Handle {
 public:
  ~StatementHandle();

  /// Takes a copy of the text; binds, defines, descriptors and the run of the text before are gone.
  void prepare(std::string_view sql);
  /// Makes the select list known without running.
  void describe(Attachment& attachment);
  /// Runs; a query also fetches up to `iterations` rows.
  sword execute(Attachment& attachment, ub4 iterations, bool commit, ErrorRecord& record);

  /// Binds the variable of a placeholder, in the place of a former one: ORA-01036 where there is no
  /// such placeholder. Takes effect with the next execute.
  BindHandle& bind(const BindHandle& wanted);

  /// Defines the output variable at `wanted.position`, in the place of a former one.
  DefineHandle& define(const DefineHandle& wanted);
  /// Fetches up to `rows` rows, 0 closes the cursor. See OCIStmtFetch for the status codes.
  sword fetch(ub4 rows, ErrorRecord& record);

  /// The column whose next piece is due; `first` tells whether none of it was fetched yet.
  DefineHandle& due_piece(bool& first) const;
  /// ORA-01002 for a define that is not due, ORA-24328 for a buffer without a length or an address.
  void offer_buffer(const DefineHandle& define, const PieceBuffer& buffer);

  /// The descriptor of a column, from 1: ORA-24334 beyond the last one.
  ParameterHandle& parameter(ub4 position);
  ub4 parameter_count() const;
  /// ORA-24337 when nothing is prepared.
  const SqlText& prepared_text() const;
  ub2 function() const { return text_ == nullptr ? 0 : text_->function; }

  /// Whether it waits for a callback of the caller's, who must not change or free it meanwhile.
  bool pulling() const { return pulling_; }

  /// Ends the run and leaves the database.
  void drop_run() noexcept;

  void note_call(CallCode call) noexcept {
    last_call.store(static_cast<ub4>(call), std::memory_order_relaxed);
  }

  // Atomic: callers read them, too, from the thread that breaks a running call.
  std::atomic<ub4> row_count{0};
  std::atomic<ub4> last_call{0};

  ub2 parse_error_offset = 0;
  // However many rows the caller asks for, one is enough here: rows are handed over from the
  // engine's own memory. 0 stops that one, too.
  ub4 prefetch_rows = 1;

 private:
  // How far a query has come. A change and a block leave it at Closed, or at Failed after an error.
  enum class Cursor : ub1 {
    Closed,
    AtRow,  // a row stands that was not handed over
    PastRow,  // the row that stands was handed over
    AtEnd,
    Failed  // failure_ ended it
  };
  class Callback;
  class StreamUnit;
  class LargeSink;
  // Fetch in pieces is a dialogue: BufferDue after OCI_NEED_DATA, BufferOffered once
  // OCIStmtSetPieceInfo has named a buffer, and back with the next OCIStmtFetch.
  enum class Pieces : ub1 { None, BufferDue, BufferOffered };

  // The value whose pieces are being handed over; `left` and `total` are bytes.
  struct PieceState {
    Pieces phase = Pieces::None;
    bool first = false;
    bool null = false;
    size_t define = 0;  // index into defines_
    LargeName large;  // names nothing for a value whose bytes the engine has
    size_t left = 0;
    size_t total = 0;
    PieceBuffer buffer;
  };

  void require_idle() const;
  void enter(Attachment& attachment);
  // Parts of an execute. Codes that are no errors come back as int, everything else is raised.
  int start(Attachment& attachment, ub4 iterations);
  void run_change();
  int run_block(ub4 row, StreamUnit& unit);
  void remember(const Failure& failure);
  const std::vector<ColumnInfo>& columns() const;

  bool step();
  bool next_row();
  void look_ahead();
  sword fetch_on(ub4 rows, ErrorRecord& record);
  void check_fetch();
  void arm();
  sword fetch_rows(ub4 rows, ErrorRecord& record);
  int store_row(size_t row);
  Value begin_of_long(const DefineHandle& define, const Value& value);
  void close_cursor() noexcept;

  sword fetch_in_pieces(ErrorRecord& record);
  sword begin_pieces(size_t define, ErrorRecord& record);
  sword fill_piece(ErrorRecord& record);
  void copy_piece(size_t length);
  sword end_pieces(ErrorRecord& record);

  bool check_binds(ub4 iterations) const;
  bool streams_large(size_t index);
  void pull_streams(StreamUnit& unit, ub4 row);
  void give_inputs(ub4 row);
  int store_outputs(ub4 row);
  void hand_over_cursors(ub4 row);
  StatementHandle& cursor_variable(const BindHandle& bind, ub4 row) const;
  void adopt(OpenedCursor opened, Attachment& attachment);
  void release_streams() noexcept;
  void abandon_streams() noexcept;

  void drop_binds() noexcept;
  void drop_defines() noexcept;

  bool armed_ = false;  // in this run the defines suit the select list and have their conversions
  bool has_pieces_ = false;
  bool pulling_ = false;  // a callback of the caller is running
  Cursor cursor_ = Cursor::Closed;
  std::unique_ptr<const SqlText> text_;  // null when nothing is prepared
  Attachment* attachment_ = nullptr;  // with run_ or block_
  std::unique_ptr<Statement> run_;
  std::unique_ptr<Block> block_;  // in the place of run_ for BEGIN and DECLARE
  std::vector<PlaceholderUse> uses_;  // of a block
  std::optional<Failure> failure_;
  std::vector<BindHandle*> binds_;  // for each placeholder, null without one
  std::vector<HeldBytes> held_;  // for each placeholder: pulled, or needed by an open query
  std::vector<LargeName> streamed_;  // for each placeholder: pulled into the database
  ub4 breaks_ = 0;  // of the attachment, when the call began
  StreamUnit* unit_ = nullptr;  // of the iteration that runs
  HeldBytes begin_;  // of a long value, for a variable that takes no more
  std::vector<DefineHandle*> defines_;  // by position
  std::vector<ParameterHandle*> parameters_;
  PieceState piece_;
  int row_information_ = 0;  // of the ordinary columns of a row in pieces: told at its end
};

}  // namespace oci8

#endif
