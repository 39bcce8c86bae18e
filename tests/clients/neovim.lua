-- tovik-lsp in Neovim's own client, from a folder with main.k and lib.k: diagnostics, hover, rename, a correction.
local function check(condition, what)
    if not condition then
        io.stderr:write("neovim.lua: " .. what .. "\n" .. vim.inspect(vim.diagnostic.get(nil)) .. "\n")
        vim.cmd("cquit")
    end
end
local function wait_for(what, condition) check(vim.wait(10000, condition, 20), "waited for " .. what) end
local function file(name, ...) vim.fn.writefile({ ... }, name) end

file("main.k", "// caf\u{e9} \u{1f600}", "        add     sum sum on // \u{1f600}", "        halt", "sum     .data   0",
    "#include lib.k")
file("lib.k", "one     .data   1")
vim.cmd("edit main.k")
local client = vim.lsp.start_client({ name = "tovik", cmd = { vim.env.TOVIK_BIN .. "/tovik-lsp" }, root_dir = vim.fn.getcwd() })
vim.lsp.buf_attach_client(0, client)
local function messages()
    return table.concat(vim.tbl_map(function(one) return one.lnum .. ":" .. one.col .. " " .. one.code end, vim.diagnostic.get(0)), ", ")
end
local function ask(method, params)
    local answers = vim.lsp.buf_request_sync(0, "textDocument/" .. method, params, 10000)
    return answers and answers[client] and answers[client].result
end
local function line(number) return vim.fn.getline(number) end

-- It is the client that counts columns and makes the edits of what the server says.
wait_for("the fault", function() return messages() == "1:24 undefined-label" end)
vim.fn.cursor(2, 25)
local range = vim.tbl_extend("force", vim.lsp.util.make_range_params(), { context = { diagnostics = {} } })
local actions = ask("codeAction", range)
vim.lsp.util.apply_workspace_edit(actions[1].edit, "utf-16")
check(line(2) == "        add     sum sum one // \u{1f600}", "corrected " .. line(2))
wait_for("no fault", function() return messages() == "" end)

local hover = ask("hover", vim.lsp.util.make_position_params())
check(vim.inspect(hover.contents):find("line 1 of lib.k"), "hover " .. vim.inspect(hover))

vim.lsp.buf.rename("unit")
wait_for("the new name", function() return line(2) == "        add     sum sum unit // \u{1f600}" end)
check(vim.fn.getbufline("lib.k", 1)[1] == "unit     .data   1", "renamed in lib.k")
-- The client does not have lib.k open: the server has it from the disk.
vim.cmd("wall")
wait_for("no fault after it", function() return messages() == "" end)

vim.lsp.buf.formatting_sync({}, 10000)
check(line(2) == "                add     sum sum unit    // \u{1f600}" and line(4) == "sum             .data   0", "formatted")
vim.fn.setline(3, "        halted")
wait_for("what was typed", function() return messages():find("2:8 unknown%-opcode") end)
vim.cmd("quitall!")
