-- Makes a page of the HTML manual of a page of docs/: its first heading becomes the title, and links lead to other
-- pages of this form, and name them so. The page that lists the others is the one that a folder opens with.

local function target_of(link)
  local page, place = link.target:match("^([%w-]+)%.md(#?.*)$")
  if not page then return nil end
  local name = (page == "README" and "index" or page) .. ".html"
  if pandoc.utils.stringify(link.content) == page .. ".md" then link.content = { pandoc.Str(name) } end
  link.target = name .. place
  return link
end

function Pandoc(document)
  local title = document.blocks:find_if(function(block) return block.t == "Header" end)
  document.meta.pagetitle = pandoc.utils.stringify(title.content)
  return document:walk({ Link = target_of })
end
