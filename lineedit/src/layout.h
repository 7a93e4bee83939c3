/*
 * layout.h: prompt and line as rows of cells.
 */
#ifndef _h_el_layout
#define	_h_el_layout

/*
 * A cell holds a character of one or two columns (a blank is a character), or one
 * of these. A composed cell is a character with parts of zero width: combining
 * marks, and invisible parts of the prompt. Its low bits are an offset in the pool.
 */
#define	LAYOUT_EMPTY	((wint_t)0)		/* nothing was written here */
#define	LAYOUT_FILL	((wint_t)0x7fffffff)	/* the right half of the cell before */
#define	LAYOUT_UNKNOWN	((wint_t)0x7ffffffe)	/* on the screen only: half a character */
#define	LAYOUT_COMPOSED	((wint_t)0x80000000)

/* combining marks in a cell, at most */
#define	LAYOUT_MARKS	8

typedef struct {
	wint_t	*cells;		/* owned; undefined from `end' on */
	int	 end;		/* columns in use */
	int	 continued;	/* its text goes on in the next row */
	int	 joined;	/* whether the terminal knows that, see row.h */
} layout_row_t;

/* what is laid out; all borrowed for the call */
typedef struct {
	const wchar_t	*prompt;
	wchar_t		 ignore;	/* around invisible parts, or NUL */
	const wchar_t	*line;
	size_t		 length;	/* of the line, in characters */
	size_t		 cursor;	/* in the line; more than length: none */
} layout_text_t;

/*
 * One frame: the rows of the window. Row n of all is ring[n % height].
 */
typedef struct {
	int		 width;		/* columns of a row */
	int		 height;	/* rows of the window */
	int		 top;		/* the first row that the window shows */
	int		 rows;		/* how many it shows */
	coord_t		 cursor;	/* in the window */
	layout_row_t	*ring;		/* owned */

	coord_t		 next;		/* where the next cell goes; v counts all rows */
	int		 last_h;	/* the cell placed last in this row, or -1 */
	int		 marks;		/* the combining marks that it has */
	int		 whole;		/* next is the end of the line */
	wchar_t		*pool;		/* owned; the text of composed cells, each with NUL */
	size_t		 pool_used;
	size_t		 pool_size;
	int		 pool_full;	/* there was no memory for one */
} layout_t;

libedit_private int	layout_alloc(layout_t *, int, int);
libedit_private void	layout_free(layout_t *);
libedit_private void	layout_make(layout_t *, const layout_text_t *, int);
libedit_private const wchar_t *layout_composed(const layout_t *, wint_t);
libedit_private int	layout_width(wchar_t);

/* row i of the window */
static inline layout_row_t *
layout_row(const layout_t *l, int i)
{
	return &l->ring[(l->top + i) % l->height];
}

/* layout_cell_width():
 *	The columns of the cell in column h
 */
static inline int
layout_cell_width(const layout_row_t *row, int h)
{
	return h + 1 < row->end && row->cells[h + 1] == LAYOUT_FILL ? 2 : 1;
}

#endif /* _h_el_layout */
