" Not setfiletype: Vim itself knows another language with this ending.
autocmd BufRead,BufNewFile *.k set filetype=k24
