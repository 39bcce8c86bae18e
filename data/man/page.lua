-- Makes a manual page of a page of docs/: its first heading becomes the NAME section, the others sections in
-- capitals. Pictures and the targets of links have no place in a terminal.

local function text(inlines) return pandoc.utils.stringify(inlines) end

local function shift(header)
  header.level = math.max(header.level - 1, 1)
  if header.level == 1 then
    header.content = { pandoc.Str(text(header.content):upper()) }
  end
  return header
end

function Pandoc(document)
  local name, summary = text(document.meta.title), text(document.meta.summary)
  local blocks = pandoc.List({
    pandoc.Header(1, "NAME"), pandoc.Para({ pandoc.Str(name .. " - " .. summary) }), pandoc.Header(1, "DESCRIPTION"),
  })
  for _, block in ipairs(document.blocks) do
    if block.t ~= "Header" then
      blocks:insert(block)
    elseif block.level > 1 then
      blocks:insert(shift(block))
    end
  end
  return pandoc.Pandoc(blocks, document.meta):walk({
    -- The writer sets code in a font that not every viewer knows.
    Code = function(code) return pandoc.Strong({ pandoc.Str(code.text) }) end,
    Image = function() return {} end,
    Link = function(link) return link.content end,
  })
end
