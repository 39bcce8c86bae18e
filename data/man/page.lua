-- Makes a manual page of a page of docs/: its first heading becomes the NAME section, the others sections in capitals.
-- The command that the introduction shows is the SYNOPSIS, and its table of options begins the OPTIONS. Pictures and
-- the targets of links have no place in a terminal.

-- What an indented paragraph has of a line of 80 characters, and what is between two columns of a table.
local line_characters, gap_characters = 70, 3
-- What code has, which is indented once more, and what it has without the indentation.
local code_characters, wide_code_characters = 66, 78

local manual = {
  { "tovik", 1 }, { "tovik-run", 1, "tovik-run.md" }, { "tovik-check", 1, "tovik-check.md" },
  { "tovik-lsp", 1, "editors.md" }, { "tovik-dap", 1, "tovik-dap.md" },
  { "tovik-grade", 1, "tovik-grade.md" }, { "tovik-page", 1, "tovik-page.md" },
  { "k24-formats", 5, "formats.md" }, { "k24", 7, "k24.md" },
  { "k24-devices", 7, "devices.md" }, { "k24-diagnostics", 7, "diagnostics.md" }, { "tovik-relay", 8, "relay.md" },
}

-- A table whose first column has this heading begins the section of that name, unless it is there already.
local sections = { option = "OPTIONS", ["exit status"] = "EXIT STATUS" }

local text = pandoc.utils.stringify

local function shown(page) return page[1] .. "(" .. page[2] .. ")" end

local function see_also(name, folder)
  local others = {}
  for _, page in ipairs(manual) do
    if page[1] ~= name then table.insert(others, shown(page)) end
  end
  return pandoc.List({
    pandoc.Para({ pandoc.Str(table.concat(others, ", ")) }),
    pandoc.Para({ pandoc.Str("The other pages of the manual, *.md, are in the folder " .. folder .. ", beside share/man.") }),
  })
end

-- The widest column gives way until the line is not too long.
local function fit(widths, room)
  local sum = 0
  for _, width in ipairs(widths) do sum = sum + width end
  for _ = room + 1, sum do
    local widest = 1
    for column, width in ipairs(widths) do
      if width > widths[widest] then widest = column end
    end
    widths[widest] = widths[widest] - 1
  end
  return sum > room
end

-- Two columns that are too wide for a line are a list; of more columns the text is broken.
local function set_table(block)
  local simple = pandoc.utils.to_simple_table(block)
  local widths = {}
  for _, row in ipairs({ simple.headers, table.unpack(simple.rows) }) do
    for column, cell in ipairs(row) do
      widths[column] = math.max(widths[column] or 0, utf8.len(text(cell)))
    end
  end
  if not fit(widths, line_characters - gap_characters * (#widths - 1)) then return block end
  if #widths == 2 then
    return pandoc.DefinitionList(simple.rows:map(function(row)
      return { pandoc.utils.blocks_to_inlines(row[1]), { row[2] } }
    end))
  end
  for column, width in ipairs(widths) do simple.widths[column] = width / line_characters end
  return pandoc.utils.from_simple_table(simple)
end

local function begun_section(block)
  return block.t == "Table" and sections[text(pandoc.utils.to_simple_table(block).headers[1] or {})]
end

-- A line that is too wide goes on below, from the last blank that leaves it short enough.
local function insert_broken(lines, line)
  while utf8.len(line) > wide_code_characters do
    local begin = line:sub(1, utf8.offset(line, wide_code_characters + 2) - 1):match("^(.*%S) ")
    if not begin then break end
    table.insert(lines, begin)
    line = "    " .. line:sub(#begin + 2)
  end
  table.insert(lines, line)
end

-- Code that is too wide is indented less than the text around it, and broken where even that is not enough.
local function set_code(block)
  local widest, lines = 0, {}
  for line in (block.text .. "\n"):gmatch("([^\n]*)\n") do
    widest = math.max(widest, utf8.len(line))
    insert_broken(lines, line)
  end
  if widest <= code_characters then return block end
  local written = table.concat(lines, "\n"):gsub("[\\`^~-]", { ["\\"] = "\\e", ["`"] = "\\(ga", ["^"] = "\\(ha",
    ["~"] = "\\(ti", ["-"] = "\\-" }):gsub("\n", "\n\\&")
  return pandoc.RawBlock("man", ".PP\n.in 2n\n.nf\n\\&" .. written .. "\n.fi\n.in")
end

local function pages_of_links(link)
  for _, page in ipairs(manual) do
    if text(link.content) == page[3] then return pandoc.Str(shown(page)) end
  end
  return link.content
end

function Pandoc(document)
  local name, summary = text(document.meta.title), text(document.meta.summary)
  local synopsis, body = pandoc.List({}), pandoc.List({ pandoc.Header(1, "DESCRIPTION") })
  local section
  local function begin(title)
    section = title
    body:insert(pandoc.Header(1, title))
  end
  for _, block in ipairs(document.blocks) do
    local begun = begun_section(block)
    if begun and not (section or ""):find(begun, 1, true) then begin(begun) end
    if block.t == "CodeBlock" and not section and #synopsis == 0 and block.text:find(name .. " ", 1, true) == 1 then
      local lines = {}
      for line in block.text:gmatch("[^\n]+") do table.insert(lines, { pandoc.Str(line) }) end
      synopsis = pandoc.List({ pandoc.Header(1, "SYNOPSIS"), pandoc.LineBlock(lines) })
    elseif block.t ~= "Header" then
      body:insert(block)
    elseif block.level == 2 then
      begin(text(block.content):upper())
    elseif block.level > 2 then
      body:insert(pandoc.Header(block.level - 1, block.content))
    end
  end
  local blocks = pandoc.List({ pandoc.Header(1, "NAME"), pandoc.Para({ pandoc.Str(name .. " - " .. summary) }) })
  blocks:extend(synopsis)
  blocks:extend(body)
  blocks:insert(pandoc.Header(1, "SEE ALSO"))
  blocks:extend(see_also(name, text(document.meta.folder)))
  return pandoc.Pandoc(blocks, document.meta):walk({ Link = pages_of_links, Image = function() return {} end }):walk({
    Table = set_table,
    CodeBlock = set_code,
  }):walk({
    -- The writer sets code in a font that not every viewer knows.
    Code = function(code) return pandoc.Strong({ pandoc.Str(code.text) }) end,
  })
end
