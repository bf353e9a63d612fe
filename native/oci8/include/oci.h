/* The Oracle Call Interface, release 8: types, constants and prototypes of the calls that this
 * tree makes. Values, widths and signatures are those of the public interface, so that a caller
 * built against this header runs on any client library that offers the interface.
 *
 * Conventions. Handles and descriptors are opaque; the environment owns every handle made from
 * it, and a statement owns its binds, defines and parameter descriptors. Lengths are in bytes
 * unless a remark says otherwise. Calls return one of the status codes below; the diagnostic of
 * a failed call is in the error handle that was passed to it until the next call with that
 * handle. Strings that OCIAttrGet returns belong to the interface and are not zero-terminated.
 */
#ifndef ORALAYER_OCI_H
#define ORALAYER_OCI_H

#include <stddef.h>

typedef unsigned char ub1;
typedef signed char sb1;
typedef unsigned short ub2;
typedef signed short sb2;
typedef unsigned int ub4;
typedef signed int sb4;
typedef signed int sword;
typedef int boolean;
typedef unsigned char text;
typedef unsigned short utext; /* one UCS-2 unit */

typedef struct OCIEnv OCIEnv;
typedef struct OCIError OCIError;
typedef struct OCISvcCtx OCISvcCtx;
typedef struct OCIServer OCIServer;
typedef struct OCISession OCISession;
typedef struct OCIStmt OCIStmt;
typedef struct OCIBind OCIBind;
typedef struct OCIDefine OCIDefine;
typedef struct OCISnapshot OCISnapshot;
typedef struct OCILobLocator OCILobLocator;

/* The cursor data area of the release 7 interface; its layout is private to that interface. */
typedef struct Cda_Def {
  ub1 area[64];
} Cda_Def;

/* Status codes */
#define OCI_SUCCESS 0
#define OCI_SUCCESS_WITH_INFO 1
#define OCI_NEED_DATA 99
#define OCI_NO_DATA 100
#define OCI_ERROR (-1)
#define OCI_INVALID_HANDLE (-2)
#define OCI_CONTINUE (-24200) /* callbacks only */

/* Handle types */
#define OCI_HTYPE_ENV 1
#define OCI_HTYPE_ERROR 2
#define OCI_HTYPE_SVCCTX 3
#define OCI_HTYPE_STMT 4
#define OCI_HTYPE_BIND 5
#define OCI_HTYPE_DEFINE 6
#define OCI_HTYPE_SERVER 8
#define OCI_HTYPE_SESSION 9

/* Descriptor types */
#define OCI_DTYPE_LOB 50
#define OCI_DTYPE_PARAM 53

/* Attributes of handles */
#define OCI_ATTR_FNCODE 1 /* ub4 */
#define OCI_ATTR_NONBLOCKING_MODE 3 /* ub1, server */
#define OCI_ATTR_SERVER 6 /* OCIServer*, service context */
#define OCI_ATTR_SESSION 7 /* OCISession*, service context */
#define OCI_ATTR_ROW_COUNT 9 /* ub4, statement */
#define OCI_ATTR_SQLFNCODE 10 /* ub2, statement */
#define OCI_ATTR_PREFETCH_ROWS 11 /* ub4, statement */
#define OCI_ATTR_PARAM_COUNT 18 /* ub4, statement */
#define OCI_ATTR_USERNAME 22 /* text, session */
#define OCI_ATTR_PASSWORD 23 /* text, session */
#define OCI_ATTR_STMT_TYPE 24 /* ub2, statement */
#define OCI_ATTR_PARSE_ERROR_OFFSET 129 /* ub2, statement */

/* Attributes of parameter descriptors (the numbers overlap those of handles) */
#define OCI_ATTR_DATA_SIZE 1 /* ub2 */
#define OCI_ATTR_DATA_TYPE 2 /* ub2 */
#define OCI_ATTR_NAME 4 /* text */
#define OCI_ATTR_PRECISION 5 /* sb2 from a described statement */
#define OCI_ATTR_SCALE 6 /* sb1 */
#define OCI_ATTR_IS_NULL 7 /* ub1 */

/* Statement types */
#define OCI_STMT_SELECT 1
#define OCI_STMT_UPDATE 2
#define OCI_STMT_DELETE 3
#define OCI_STMT_INSERT 4
#define OCI_STMT_CREATE 5
#define OCI_STMT_DROP 6
#define OCI_STMT_ALTER 7
#define OCI_STMT_BEGIN 8
#define OCI_STMT_DECLARE 9

/* Modes. The same number has different meanings for different calls. */
#define OCI_DEFAULT 0
#define OCI_THREADED 1 /* OCIInitialize */
#define OCI_DESCRIBE_ONLY 0x10 /* OCIStmtExecute */
#define OCI_COMMIT_ON_SUCCESS 0x20 /* OCIStmtExecute */
#define OCI_DATA_AT_EXEC 2 /* OCIBindByPos */
#define OCI_DYNAMIC_FETCH 2 /* OCIDefineByPos */

#define OCI_NTV_SYNTAX 1

#define OCI_FETCH_NEXT 2

#define OCI_ONE_PIECE 0
#define OCI_FIRST_PIECE 1
#define OCI_NEXT_PIECE 2
#define OCI_LAST_PIECE 3

#define OCI_PARAM_IN 1
#define OCI_PARAM_OUT 2

#define OCI_CRED_RDBMS 1
#define OCI_CRED_EXT 2

#define OCI_ERROR_MAXMSG_SIZE 1024

/* Character sets and forms. In UCS-2 data a surrogate pair counts as two characters. */
#define OCI_UCS2ID 1000
#define SQLCS_IMPLICIT 1
#define SQLCS_NCHAR 2

/* External and internal datatype codes */
#define SQLT_CHR 1
#define SQLT_NUM 2
#define SQLT_INT 3
#define SQLT_FLT 4
#define SQLT_STR 5
#define SQLT_LNG 8
#define SQLT_RID 11
#define SQLT_DAT 12
#define SQLT_BIN 23
#define SQLT_LBI 24
#define SQLT_AFC 96
#define SQLT_RDD 104
#define SQLT_LAB 105
#define SQLT_CLOB 112
#define SQLT_BLOB 113
#define SQLT_RSET 116

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* Process and environments */
sword OCIInitialize(ub4 mode, void* ctxp, void* (*malocfp)(void* ctxp, size_t size),
                    void* (*ralocfp)(void* ctxp, void* memptr, size_t newsize),
                    void (*mfreefp)(void* ctxp, void* memptr));
sword OCIEnvInit(OCIEnv** envhpp, ub4 mode, size_t xtramem_sz, void** usrmempp);

/* Handles. User memory of xtramem_sz bytes lives as long as its handle. */
sword OCIHandleAlloc(const void* parenth, void** hndlpp, ub4 type, size_t xtramem_sz,
                     void** usrmempp);
sword OCIHandleFree(void* hndlp, ub4 type);

/* Attributes: the target's type decides what an attribute number means. */
sword OCIAttrGet(const void* trgthndlp, ub4 trghndltyp, void* attributep, ub4* sizep, ub4 attrtype,
                 OCIError* errhp);
sword OCIAttrSet(void* trgthndlp, ub4 trghndltyp, void* attributep, ub4 size, ub4 attrtype,
                 OCIError* errhp);
sword OCIParamGet(const void* hndlp, ub4 htype, OCIError* errhp, void** parmdpp, ub4 pos);

/* Diagnostics: records count from 1; the text ends with a line feed and a zero byte. */
sword OCIErrorGet(void* hndlp, ub4 recordno, text* sqlstate, sb4* errcodep, text* bufp, ub4 bufsiz,
                  ub4 type);

/* Servers, sessions, transactions */
sword OCIServerAttach(OCIServer* srvhp, OCIError* errhp, const text* dblink, sb4 dblink_len,
                      ub4 mode);
sword OCIServerDetach(OCIServer* srvhp, OCIError* errhp, ub4 mode);
sword OCISessionBegin(OCISvcCtx* svchp, OCIError* errhp, OCISession* usrhp, ub4 credt, ub4 mode);
sword OCISessionEnd(OCISvcCtx* svchp, OCIError* errhp, OCISession* usrhp, ub4 mode);
sword OCITransCommit(OCISvcCtx* svchp, OCIError* errhp, ub4 flags);
sword OCITransRollback(OCISvcCtx* svchp, OCIError* errhp, ub4 flags);
/* May be called from any thread while a call runs on the service context or server. */
sword OCIBreak(void* hndlp, OCIError* errhp);

/* Statements */
sword OCIStmtPrepare(OCIStmt* stmtp, OCIError* errhp, const text* stmt, ub4 stmt_len, ub4 language,
                     ub4 mode);
sword OCIStmtExecute(OCISvcCtx* svchp, OCIStmt* stmtp, OCIError* errhp, ub4 iters, ub4 rowoff,
                     const OCISnapshot* snap_in, OCISnapshot* snap_out, ub4 mode);
sword OCIDefineByPos(OCIStmt* stmtp, OCIDefine** defnpp, OCIError* errhp, ub4 position,
                     void* valuep, sb4 value_sz, ub2 dty, void* indp, ub2* rlenp, ub2* rcodep,
                     ub4 mode);
sword OCIStmtFetch(OCIStmt* stmtp, OCIError* errhp, ub4 nrows, ub2 orientation, ub4 mode);

/* Binds, by position from 1. Buffers, indicators and lengths are read when the statement executes,
 * and written by it where the placeholder is an output. With OCI_DATA_AT_EXEC the value comes from
 * the callback that OCIBindDynamic registers: called on the executing thread until it has marked a
 * piece OCI_LAST_PIECE or OCI_ONE_PIECE; anything but OCI_CONTINUE ends the execution. */
typedef sb4 (*OCICallbackInBind)(void* ictxp, OCIBind* bindp, ub4 iter, ub4 index, void** bufpp,
                                 ub4* alenp, ub1* piecep, void** indpp);
typedef sb4 (*OCICallbackOutBind)(void* octxp, OCIBind* bindp, ub4 iter, ub4 index, void** bufpp,
                                  ub4** alenpp, ub1* piecep, void** indpp, ub2** rcodepp);
sword OCIBindByPos(OCIStmt* stmtp, OCIBind** bindpp, OCIError* errhp, ub4 position, void* valuep,
                   sb4 value_sz, ub2 dty, void* indp, ub2* alenp, ub2* rcodep, ub4 maxarr_len,
                   ub4* curelep, ub4 mode);
sword OCIBindDynamic(OCIBind* bindp, OCIError* errhp, void* ictxp, OCICallbackInBind icbfp,
                     void* octxp, OCICallbackOutBind ocbfp);

/* Piecewise transfer: the handle that the next piece belongs to, and the buffer for it. */
sword OCIStmtGetPieceInfo(OCIStmt* stmtp, OCIError* errhp, void** hndlpp, ub4* typep, ub1* in_outp,
                          ub4* iterp, ub4* idxp, ub1* piecep);
sword OCIStmtSetPieceInfo(void* hndlp, ub4 type, OCIError* errhp, const void* bufp, ub4* alenp,
                          ub1 piece, const void* indp, ub2* rcodep);

/* Descriptors. A LOB locator is allocated empty and filled by a fetch, a bind or an assignment;
 * freeing it does not touch the value. */
sword OCIDescriptorAlloc(const void* parenth, void** descpp, ub4 type, size_t xtramem_sz,
                         void** usrmempp);
sword OCIDescriptorFree(void* descp, ub4 type);

/* LOBs. Offsets count from 1. Offsets and amounts are in characters for a CLOB and in bytes for a
 * BLOB, buffer lengths always in bytes. csid and csfrm describe the buffer's data; csid 0 is the
 * database's own set. Without a callback a transfer that needs several buffers goes on, while the
 * call answers OCI_NEED_DATA, with further calls on the same locator. */
typedef sb4 (*OCICallbackLobRead)(void* ctxp, const void* bufp, ub4 len, ub1 piece);
typedef sb4 (*OCICallbackLobWrite)(void* ctxp, void* bufp, ub4* lenp, ub1* piecep);
sword OCILobAssign(OCIEnv* envhp, OCIError* errhp, const OCILobLocator* src_locp,
                   OCILobLocator** dst_locpp);
sword OCILobGetLength(OCISvcCtx* svchp, OCIError* errhp, OCILobLocator* locp, ub4* lenp);
sword OCILobCharSetId(OCIEnv* envhp, OCIError* errhp, const OCILobLocator* locp, ub2* csid);
sword OCILobCharSetForm(OCIEnv* envhp, OCIError* errhp, const OCILobLocator* locp, ub1* csfrm);
sword OCILobRead(OCISvcCtx* svchp, OCIError* errhp, OCILobLocator* locp, ub4* amtp, ub4 offset,
                 void* bufp, ub4 bufl, void* ctxp, OCICallbackLobRead cbfp, ub2 csid, ub1 csfrm);
sword OCILobWrite(OCISvcCtx* svchp, OCIError* errhp, OCILobLocator* locp, ub4* amtp, ub4 offset,
                  void* bufp, ub4 buflen, ub1 piece, void* ctxp, OCICallbackLobWrite cbfp, ub2 csid,
                  ub1 csfrm);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
