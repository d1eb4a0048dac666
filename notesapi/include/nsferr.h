/*
 * nsferr.h - status codes of the note storage file packages (PKG_NSF,
 * PKG_NSF3) and of the formula compiler (PKG_FORMULA).
 */
#ifndef NSF_ERR_DEFS
#define NSF_ERR_DEFS

#ifndef GLOBAL_DEFS
#error "global.h must be included before this header"
#endif

#define ERR_NOT_NSF          (PKG_NSF+1)   /* file is not a database */
#define ERR_CONFLICT         (PKG_NSF+5)   /* note changed by someone else since it was read */
#define ERR_NOTE_ID          (PKG_NSF+20)  /* invalid document identifier */
#define ERR_DIRECTORY        (PKG_NSF+28)  /* not valid on a directory handle */
#define ERR_ITEM_NOT_FOUND   (PKG_NSF+34)  /* no such item */
#define ERR_NOTE_DELETED     (PKG_NSF+37)  /* note is a deletion stub */
#define ERR_INVALID_NOTE     (PKG_NSF+39)  /* invalid or nonexistent document */
#define ERR_NSFOPEN          (PKG_NSF+41)  /* database in use by you or another user */
#define ERR_NSF_IN_USE       (PKG_NSF+46)  /* not allowed on a database that may be in use */
#define ERR_SUMMARY_TOO_BIG  (PKG_NSF+49)  /* summary data over 32K */
#define ERR_NOACCESS         (PKG_NSF+70)  /* not authorized */

#define ERR_DBINUSE          (PKG_NSF3+106) /* in use, cannot be taken off-line */

/* Formula compiler. NSFFormulaCompile returns ERR_FORMULA_COMPILATION and
   reports the precise error (one of the others) through its out-params. */
#define ERR_FORMULA_COMPILATION  (PKG_FORMULA+1)
#define ERR_INVALID_OPERATOR     (PKG_FORMULA+2)
#define ERR_INVALID_ARG_TYPE     (PKG_FORMULA+3)
#define ERR_TOO_MANY_ARGS        (PKG_FORMULA+4)
#define ERR_FN_OR_OP_EXPECTED    (PKG_FORMULA+5)
#define ERR_INSUFFICIENT_ARGS    (PKG_FORMULA+6)
#define ERR_NOT_UNARY            (PKG_FORMULA+7)
#define ERR_NOT_BINARY           (PKG_FORMULA+8)
#define ERR_PREMATURE_EOI        (PKG_FORMULA+10) /* formula incomplete */
#define ERR_OP_EXPECTED          (PKG_FORMULA+11)
#define ERR_INVALID_FORMULA      (PKG_FORMULA+12)
#define ERR_PAREN_EXPECTED       (PKG_FORMULA+13)
#define ERR_EXTRA_RPAREN         (PKG_FORMULA+14)
#define ERR_MISSING_RPAREN       (PKG_FORMULA+15)
#define ERR_NO_MAIN_EXPRESSION   (PKG_FORMULA+21)
#define ERR_UNTERMINATED_LITERAL (PKG_FORMULA+23)
#define ERR_ONE_MAIN_EXPR        (PKG_FORMULA+25) /* only one SELECT allowed */
#define ERR_NO_FORMULA           (PKG_FORMULA+26)
#define ERR_UNKNOWN_FUNCTION     (PKG_FORMULA+27)
#define ERR_ARGS_EXPECTED        (PKG_FORMULA+30)
#define ERR_BIG_LITERAL          (PKG_FORMULA+31)

#endif /* NSF_ERR_DEFS */
