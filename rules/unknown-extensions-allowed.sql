-- title: Unknown CGI or ISAPI extensions are allowed
-- severity: high
-- category: security
-- why: Any program that gets into a directory with execute permission runs.
-- fix: Prohibit the extension, and allow by name those that are needed.
-- references: Microsoft, Enabling and Disabling Dynamic Content | https://learn.microsoft.com/en-us/previous-versions/windows/it-pro/windows-server-2008-r2-and-2008/cc753816(v=ws.10)
-- requires: web_extension
-- columns: description text, status text
select object_id,
       case when bool_or(judged) then true when bool_or(judged is null) then null else false end as holds,
       min(description) as description, min(status) as status
from (select object_id, description, status,
             fold(description) in ('all unknown cgi extensions', 'all unknown isapi extensions') and status = 'Allowed' as judged
      from web_extension) extension
group by object_id
