// Curses. The device's release and this machine's number characters, attributes, colours and keys
// the same, and the program leaves windows to the library: only answers of yes or no are returned
// in another way.
#define NCURSES_NOMACROS 1
#include <curses.h>
#include <term.h>

#include "imports/calls.h"

namespace {

static_assert(sizeof(chtype) == 4 && sizeof(attr_t) == 4);
static_assert(A_STANDOUT == 1u << 16 && A_UNDERLINE == 1u << 17 && A_REVERSE == 1u << 18 &&
              A_BLINK == 1u << 19 && A_DIM == 1u << 20 && A_BOLD == 1u << 21 && A_COLOR == 0xFF00);
static_assert(COLOR_RED == 1 && COLOR_BLUE == 4 && COLOR_WHITE == 7);
static_assert(KEY_DOWN == 0402 && KEY_HOME == 0406 && KEY_F0 == 0410 && KEY_DC == 0512 &&
              KEY_NPAGE == 0522 && KEY_END == 0550 && KEY_RESIZE == 0632);

}  // namespace

#define SAME(name) call(#name, &::name)

namespace loader {

std::span<const Import> curses() {
  static const Import table[] = {
      place("COLORS", &COLORS),
      place("acs_map", &acs_map),
      place("stdscr", &stdscr),
      SAME(cbreak),
      SAME(clearok),
      SAME(curs_set),
      SAME(define_key),
      SAME(endwin),
      SAME(getcurx),
      SAME(getmaxx),
      SAME(getmaxy),
      widened<::has_colors>("has_colors"),
      SAME(idlok),
      SAME(init_pair),
      SAME(initscr),
      SAME(intrflush),
      widened<::is_term_resized>("is_term_resized"),
      widened<::isendwin>("isendwin"),
      SAME(keypad),
      SAME(nodelay),
      SAME(noecho),
      SAME(resizeterm),
      SAME(scrollok),
      SAME(start_color),
      SAME(setupterm),
      SAME(typeahead),
      SAME(use_default_colors),
      SAME(waddch),
      SAME(waddnstr),
      SAME(wattr_off),
      SAME(wattr_on),
      SAME(wattrset),
      SAME(wbkgdset),
      SAME(wclrtoeol),
      SAME(werase),
      SAME(wgetch),
      SAME(wmove),
      SAME(wrefresh),
      SAME(wscrl),
  };
  return table;
}

}  // namespace loader
