/* The console record: the options and status of a read, the prompt, the
   edit buffer, the row model, the key maps, the history and the callbacks,
   with one private handle for the records of the modules behind it. Every
   operation of the console layer takes it first, so it lies below all of
   them: a plain record, nothing here acts on it. */
#ifndef QUORVEL_CONSOLE_RECORD_H
#define QUORVEL_CONSOLE_RECORD_H

#include <stdint.h>
#include <wchar.h>

#include "editor.h"
#include "history.h"
#include "prebuffer.h"
#include "quorvel.h"
#include "termline.h"

#ifdef __cplusplus
extern "C" {
#endif

struct keymap_entry;

/* The read status codes ST_* are defined in quorvel.h. */

#define FLAG_NONINTERACTIVE 0x02
#define FLAG_INSERT_KEY 0x20

typedef struct console {
    char maskchar;
    int history_add_unchanged;
    int history_allow_duplicates;
    int history_max;
    int sigint;
    int masked;
    int raw;
    int flags;
    int status;
    int error;
    const wchar_t *prompt; /* not owned; valid during a read only */
    /* Not owned: the read's own prompt and a style for each of its
       characters (NULL: none), used while prompt is that prompt. */
    const wchar_t *styled_prompt;
    const uint32_t *prompt_styles;
    editor_t editor;
    screen_t screen;
    struct keymap_entry **keymaps; /* three maps; the first is active */
    history_t *history;
    term_callbacks callbacks;
    prebuffer_t prebuffer;
    int initialized;
    int terminate;
    int eof;
    int cancel;
    /* Library-private: the records of the modules behind the console, each
       opaque to the others (see console_state). */
    struct console_state *state;
} console;

#ifdef __cplusplus
}

#ifdef QUORVEL_INTERNAL
namespace qv {
struct EditState;
struct UndoLog;
struct KillRing;
struct HintState;
struct BelowState;
struct MenuState;
struct SearchState;
struct CompletionState;
struct PasteState;
struct EditKeysState;
struct FrameState;
struct EngineState;
struct ModelState;
struct ViewState;
struct PlainState;
struct FileState;
struct ViState;
struct CommandState;
struct RepeatState;
struct VariableState;
} // namespace qv

/* One handle for each module that keeps state for the console. A module
   reaches another's state only through that module's functions. */
struct console_state {
    qv::EditState *edit;           /* editor: continuation breaks, changes */
    qv::UndoLog *undo;             /* undo */
    qv::KillRing *ring;            /* killring: kills and the last yank */
    qv::HintState *hint;           /* hints: the hint shown, a copy */
    qv::SearchState *search;       /* search */
    qv::CompletionState *completion; /* completion: the candidates listed */
    qv::PasteState *paste;         /* paste */
    qv::EditKeysState *editkeys;   /* editkeys: a quoted key waiting */
    qv::FrameState *frame;         /* frame: the key's screen requests */
    qv::EngineState *engine;       /* input: a paint held back by a burst */
    qv::ModelState *model;         /* model: the rows touched since a paint */
    qv::ViewState *view;           /* view: where each row starts */
    qv::PlainState *plain;         /* plainview: the one-row display */
    qv::FileState *file;           /* historyfile: entries to save */
    qv::ViState *vi;               /* vimode: its maps, its mode, a command half typed */
    qv::CommandState *commands;    /* commands: the mark, a history search, a character search */
    qv::RepeatState *repeat;       /* repeat: a numeric argument, keyboard and string macros */
    qv::VariableState *variables;  /* variables: readline's variables as set */
    qv::BelowState *below;         /* below: rows shown below the input */
    qv::MenuState *menu;           /* menu: the candidates a menu goes through */
};
#endif
#endif

#endif
