// The records as the reference platform lays them out: 32-bit Linux on i386. Other 32-bit code that
// knows these records was built for these offsets, so a field that moves there is a fault here.
// Elsewhere pointers are wider and nothing depends on the places.

#if defined(__i386__)

#include <cstddef>
#include <type_traits>

#include "oralayer8.h"

// The field lies at the offset and is of exactly the type.
#define FIELD(record, offset, type, field)                                                  \
  static_assert(                                                                            \
      offsetof(record, field) == (offset) && std::is_same_v<decltype(record::field), type>, \
      #record "." #field " has moved or changed its type")
#define RECORD(record, size)                                                   \
  static_assert(sizeof(record) == (size) && std::is_standard_layout_v<record>, \
                #record " has another size or is not plain")

static_assert(sizeof(ub2) == 2 && sizeof(sb4) == 4 && sizeof(sword) == 4 && sizeof(utext) == 2);
static_assert(sizeof(boolean) == 4 && sizeof(jboolean) == 1 && sizeof(jint) == 4);

RECORD(ldadata, 36);
FIELD(ldadata, 0, OCIEnv*, envhp);
FIELD(ldadata, 4, OCIServer*, srvhp);
FIELD(ldadata, 8, OCIError*, errhp);
FIELD(ldadata, 12, OCISvcCtx*, svchp);
FIELD(ldadata, 16, OCISession*, usrhp);
FIELD(ldadata, 20, void*, tmp);
FIELD(ldadata, 24, OCISession*, authp);
FIELD(ldadata, 28, int, status);
FIELD(ldadata, 32, int, autocommit);

// The fields are the holder's own.
struct ldapool_holder_layout {
  RECORD(ldapool_holder, 16);
  FIELD(ldapool_holder, 0, int, is_inited);
  FIELD(ldapool_holder, 4, char*, env_var);
  FIELD(ldapool_holder, 8, int, pool_size);
  FIELD(ldapool_holder, 12, ldadata*, pool);
};

RECORD(columndata, 236);
FIELD(columndata, 0, sb4, byte_arrlen);
FIELD(columndata, 4, sword, colpos);
FIELD(columndata, 8, ub4, dbsize);
FIELD(columndata, 12, sb2, internal_dbtype);
FIELD(columndata, 14, sb2, prec);
FIELD(columndata, 16, sb2, scale);
FIELD(columndata, 18, sb2, nullok);
FIELD(columndata, 20, ub4, piecelen);
FIELD(columndata, 24, int, stream_type);
FIELD(columndata, 28, ub2, overloading);
FIELD(columndata, 30, ub2, level);
FIELD(columndata, 32, ub1, radix);
FIELD(columndata, 33, ub1, hasdefault);
FIELD(columndata, 34, ub1, iomode);
FIELD(columndata, 36, int, vectsize);
FIELD(columndata, 40, sb2*, indpvect);
FIELD(columndata, 44, ub2*, retlenvect);
FIELD(columndata, 48, ub2*, retcodevect);
FIELD(columndata, 52, signed char[129], columnname);
FIELD(columndata, 184, sword, external_dbtype);
FIELD(columndata, 188, sword, external_nonchar);
FIELD(columndata, 192, sword, buflen);
FIELD(columndata, 196, ub1*, bufptr);
FIELD(columndata, 200, ub1*, byte_arr);
FIELD(columndata, 204, sb4*, long_arr);
FIELD(columndata, 208, double*, double_arr);
FIELD(columndata, 212, int, min_bind_size);
FIELD(columndata, 216, int, boundinsert);
FIELD(columndata, 220, colctx*, ctx);
FIELD(columndata, 224, longdata_node*, longbuf_head);
FIELD(columndata, 228, longdata_node*, longbuf_tail);
FIELD(columndata, 232, OCILobLocator*, lobloc);

RECORD(colctx, 20);
FIELD(colctx, 0, JNIEnv*, env);
FIELD(colctx, 4, columndata*, col);
FIELD(colctx, 8, cdadata*, cda);
FIELD(colctx, 12, jbyteArray, jbytes);
FIELD(colctx, 16, sb1*, buf);

RECORD(cdadata, 64);
FIELD(cdadata, 0, OCISvcCtx*, svchp);
FIELD(cdadata, 4, OCIStmt*, stmthp);
FIELD(cdadata, 8, OCIError*, errhp);
FIELD(cdadata, 12, void*, tmp);
FIELD(cdadata, 16, int, described);
FIELD(cdadata, 20, int, need_data);
FIELD(cdadata, 24, jobject, jocicursor);
FIELD(cdadata, 28, int, long_count);
FIELD(cdadata, 32, ldadata*, lda);
FIELD(cdadata, 36, longcol_node*, lc_head);
FIELD(cdadata, 40, longcol_node*, lc_tail);
FIELD(cdadata, 44, longcol_node*, li_head);
FIELD(cdadata, 48, longcol_node*, li_tail);
FIELD(cdadata, 52, LongdataBufPool*, longdata_bufpool);
FIELD(cdadata, 56, text*, sqlstr);
FIELD(cdadata, 60, text*, descpstr);

RECORD(longcol_node, 16);
FIELD(longcol_node, 0, int, buf_num);
FIELD(longcol_node, 4, columndata*, coldata);
FIELD(longcol_node, 8, longcol_node*, next);
FIELD(longcol_node, 12, longcol_node*, prev);

RECORD(longdata_node, 20);
FIELD(longdata_node, 0, longdata_node*, next);
FIELD(longdata_node, 4, longdata_node*, prev);
FIELD(longdata_node, 8, sb4, buf_size);
FIELD(longdata_node, 12, ub1*, buf_ptr);
FIELD(longdata_node, 16, ub2, buf_num);

RECORD(LongdataBufPool, 8);
FIELD(LongdataBufPool, 0, int, bufPoolSP);
FIELD(LongdataBufPool, 4, longdata_node**, bufPool);

RECORD(lobdata, 8);
FIELD(lobdata, 0, OCILobLocator*, lobloc);
FIELD(lobdata, 4, cdadata*, cd);

#endif
