" Vim syntax file of K24 assembly sources.
if exists("b:current_syntax")
  finish
endif

" A word ends at white space or at a comment, which may begin anywhere. Only the second word of a line, or the first
" of an indented one, is an operation: labels may have the names of operations.
syn match k24Number "\%(^\|\s\)\@1<=-\=\%(0x\x\+\|\d\+\)\ze\%(\s\|//\|$\)"
syn match k24Label "^\%([^ \t/]\|/\/\@!\)\+" nextgroup=k24Mnemonic,k24Directive skipwhite
syn match k24Address "^-\=\d\S*" nextgroup=k24Mnemonic,k24Directive skipwhite
syn match k24Indent "^\s\+" nextgroup=k24Mnemonic,k24Directive
syn match k24Mnemonic contained
      \ "\%(halt\|add\|sub\|mult\|div\|cp\|and\|or\|not\|sl\|sr\|cpfa\|cpta\|be\|bne\|blt\|call\|ret\|cpdata\)\ze\%(\s\|//\|$\)"
syn match k24Directive contained "\.data\ze\%(\s\|//\|$\)"
syn match k24Include "^#include\ze\%(\s\|//\|$\)" nextgroup=k24File skipwhite
syn match k24File contained "\%([^ \t/]\|/\/\@!\)\+"
syn match k24Comment "//.*$" contains=@Spell

hi def link k24Number Number
hi def link k24Label Identifier
hi def link k24Address Constant
hi def link k24Mnemonic Statement
hi def link k24Directive Type
hi def link k24Include Include
hi def link k24File String
hi def link k24Comment Comment

let b:current_syntax = "k24"
