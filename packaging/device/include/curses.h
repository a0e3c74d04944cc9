// The part of the device's curses library that the program uses: ncurses 5 with 32-bit characters
// and attributes. The device SDK has no curses header. WINDOW stays closed: everything goes through
// functions, so that no layout of the library is relied on except the data symbols below.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef uint32_t chtype;
typedef chtype attr_t;
typedef struct _win_st WINDOW;

#define ERR (-1)
#define OK 0
#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

extern WINDOW *stdscr;
extern int LINES;
extern int COLS;
extern int COLORS;
extern chtype acs_map[128];

#define A_NORMAL 0u
#define A_CHARTEXT 0xffu
#define A_COLOR 0xff00u
#define A_ATTRIBUTES 0xffffff00u
#define A_STANDOUT (1u << 16)
#define A_UNDERLINE (1u << 17)
#define A_REVERSE (1u << 18)
#define A_BLINK (1u << 19)
#define A_DIM (1u << 20)
#define A_BOLD (1u << 21)

#define COLOR_PAIR(number) (((chtype)(number) << 8) & A_COLOR)
#define COLOR_BLACK 0
#define COLOR_RED 1
#define COLOR_GREEN 2
#define COLOR_YELLOW 3
#define COLOR_BLUE 4
#define COLOR_MAGENTA 5
#define COLOR_CYAN 6
#define COLOR_WHITE 7

#define ACS_LLCORNER (acs_map['m'])
#define ACS_LTEE (acs_map['t'])
#define ACS_VLINE (acs_map['x'])

#define KEY_DOWN 0402
#define KEY_UP 0403
#define KEY_LEFT 0404
#define KEY_RIGHT 0405
#define KEY_HOME 0406
#define KEY_BACKSPACE 0407
#define KEY_F0 0410
#define KEY_F(number) (KEY_F0 + (number))
#define KEY_DC 0512
#define KEY_IC 0513
#define KEY_NPAGE 0522
#define KEY_PPAGE 0523
#define KEY_ENTER 0527
#define KEY_END 0550
#define KEY_RESIZE 0632

// Functions that return int answer ERR on failure unless they answer a size or a character.
// initscr() ends the program when the terminal cannot be used.
WINDOW *initscr(void);
int endwin(void);
bool isendwin(void);
int def_prog_mode(void);
int reset_prog_mode(void);

int cbreak(void);
int noecho(void);
int echo(void);
int nodelay(WINDOW *window, bool enable);
int keypad(WINDOW *window, bool enable);
int idlok(WINDOW *window, bool enable);
int scrollok(WINDOW *window, bool enable);
int intrflush(WINDOW *window, bool enable);
int curs_set(int visibility);
int typeahead(int descriptor);
int define_key(const char *sequence, int code);
int wgetch(WINDOW *window);

bool has_colors(void);
int start_color(void);
int use_default_colors(void);
int init_pair(short pair, short foreground, short background);

int wclear(WINDOW *window);
int werase(WINDOW *window);
int wclrtoeol(WINDOW *window);
int clearok(WINDOW *window, bool enable);
int wscrl(WINDOW *window, int lines);
void wbkgdset(WINDOW *window, chtype background);
int wrefresh(WINDOW *window);
int wmove(WINDOW *window, int row, int column);
int waddnstr(WINDOW *window, const char *text, int count);
int waddch(WINDOW *window, const chtype character);
int wattr_on(WINDOW *window, attr_t attributes, void *reserved);
int wattr_off(WINDOW *window, attr_t attributes, void *reserved);
int wattrset(WINDOW *window, int attributes);

int getcurx(const WINDOW *window);
int getmaxx(const WINDOW *window);
int getmaxy(const WINDOW *window);
bool is_term_resized(int rows, int columns);
int resizeterm(int rows, int columns);

#ifdef __cplusplus
}
#endif
