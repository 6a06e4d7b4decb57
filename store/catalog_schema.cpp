#include "store/catalog_schema.h"

namespace ambervane {

const char* const kCatalogSchema = R"sql(
CREATE TABLE IF NOT EXISTS meta(
  key TEXT PRIMARY KEY,
  value TEXT NOT NULL
);

CREATE TABLE IF NOT EXISTS pack(
  id INTEGER PRIMARY KEY,
  name TEXT NOT NULL,
  created_at REAL NOT NULL,
  sealed_at REAL,
  bytes INTEGER NOT NULL DEFAULT 0,
  sha256 TEXT,
  immutable INTEGER NOT NULL DEFAULT 0
);

CREATE TABLE IF NOT EXISTS dictionary(
  id INTEGER PRIMARY KEY,
  created_at REAL NOT NULL,
  bytes BLOB NOT NULL,
  samples INTEGER NOT NULL DEFAULT 0
);

CREATE TABLE IF NOT EXISTS account(
  id INTEGER PRIMARY KEY,
  name TEXT NOT NULL,
  kind TEXT NOT NULL,
  host TEXT,
  username TEXT,
  source_path TEXT,
  created_at REAL NOT NULL,
  last_sync_at REAL,
  UNIQUE(name)
);

CREATE TABLE IF NOT EXISTS folder(
  id INTEGER PRIMARY KEY,
  account_id INTEGER NOT NULL REFERENCES account(id) ON DELETE CASCADE,
  path TEXT NOT NULL,
  delimiter TEXT NOT NULL DEFAULT '/',
  uid_validity INTEGER,
  uid_next INTEGER,
  highest_modseq INTEGER,
  last_sync_at REAL,
  UNIQUE(account_id, path)
);

CREATE TABLE IF NOT EXISTS message(
  id INTEGER PRIMARY KEY,
  sha256 TEXT NOT NULL UNIQUE,
  message_id TEXT,
  thread_key TEXT,
  subject TEXT NOT NULL DEFAULT '',
  subject_norm TEXT NOT NULL DEFAULT '',
  from_name TEXT,
  from_addr TEXT,
  from_domain TEXT,
  to_addrs TEXT,
  cc_addrs TEXT,
  participants TEXT NOT NULL DEFAULT '',
  sent_at REAL,
  internal_at REAL,
  ingested_at REAL NOT NULL,
  size INTEGER NOT NULL,
  stored_size INTEGER NOT NULL DEFAULT 0,
  has_attachments INTEGER NOT NULL DEFAULT 0,
  attachment_count INTEGER NOT NULL DEFAULT 0,
  pack_id INTEGER,
  pack_offset INTEGER,
  record_flags INTEGER NOT NULL DEFAULT 0,
  dictionary_id INTEGER NOT NULL DEFAULT 0,
  retention_class TEXT NOT NULL DEFAULT 'business',
  expires_at REAL,
  erased INTEGER NOT NULL DEFAULT 0,
  erased_at REAL,
  erasure_reason TEXT,
  in_reply_to TEXT,
  reference_ids TEXT,
  snippet TEXT,
  origin TEXT,
  origin_source TEXT,
  block_member INTEGER
);
CREATE INDEX IF NOT EXISTS idx_message_sent ON message(sent_at DESC);
CREATE INDEX IF NOT EXISTS idx_message_from ON message(from_addr);
CREATE INDEX IF NOT EXISTS idx_message_msgid ON message(message_id);
CREATE INDEX IF NOT EXISTS idx_message_thread ON message(thread_key);
CREATE INDEX IF NOT EXISTS idx_message_expiry ON message(expires_at) WHERE erased = 0;
CREATE INDEX IF NOT EXISTS idx_message_erased ON message(id) WHERE erased = 1;
CREATE INDEX IF NOT EXISTS idx_message_browse ON message(sent_at DESC, id DESC) WHERE erased = 0;
-- What the search for a part of a sender or a subject has to look at, a tenth of the rows themselves.
CREATE INDEX IF NOT EXISTS idx_message_look ON message(sent_at DESC, id DESC, from_addr, from_name, subject) WHERE erased = 0;
-- What is asked of each message that full text finds; its row would be another page of the file.
CREATE INDEX IF NOT EXISTS idx_message_hit ON message(id, sent_at, has_attachments, size, from_addr, from_name) WHERE erased = 0;
CREATE INDEX IF NOT EXISTS idx_message_unplaced ON message(id) WHERE pack_id IS NULL;

CREATE TABLE IF NOT EXISTS message_folder(
  message_id INTEGER NOT NULL REFERENCES message(id) ON DELETE CASCADE,
  folder_id INTEGER NOT NULL REFERENCES folder(id) ON DELETE CASCADE,
  uid INTEGER,
  flags TEXT NOT NULL DEFAULT '',
  added_at REAL NOT NULL,
  PRIMARY KEY(message_id, folder_id)
);
CREATE INDEX IF NOT EXISTS idx_mf_folder ON message_folder(folder_id);
CREATE INDEX IF NOT EXISTS idx_mf_uid ON message_folder(folder_id, uid);

CREATE TABLE IF NOT EXISTS message_header(
  message_id INTEGER NOT NULL REFERENCES message(id) ON DELETE CASCADE,
  name TEXT NOT NULL,
  value TEXT NOT NULL
);
CREATE INDEX IF NOT EXISTS idx_header_name ON message_header(name, message_id);
CREATE INDEX IF NOT EXISTS idx_header_msg ON message_header(message_id);

CREATE TABLE IF NOT EXISTS pending_fetch(
  folder_id INTEGER NOT NULL REFERENCES folder(id) ON DELETE CASCADE,
  uid INTEGER NOT NULL,
  uid_validity INTEGER,
  missed_at REAL NOT NULL,
  attempts INTEGER NOT NULL DEFAULT 1,
  PRIMARY KEY(folder_id, uid)
);

CREATE TABLE IF NOT EXISTS blob(
  id INTEGER PRIMARY KEY,
  hash TEXT NOT NULL UNIQUE,
  content_hash TEXT,
  pack_id INTEGER NOT NULL,
  pack_offset INTEGER NOT NULL,
  stored_size INTEGER NOT NULL,
  orig_size INTEGER NOT NULL,
  record_flags INTEGER NOT NULL DEFAULT 0,
  dictionary_id INTEGER NOT NULL DEFAULT 0,
  recipe TEXT,
  encoded_size INTEGER NOT NULL DEFAULT 0,
  refcount INTEGER NOT NULL DEFAULT 0
);

CREATE TABLE IF NOT EXISTS attachment(
  id INTEGER PRIMARY KEY,
  message_id INTEGER NOT NULL REFERENCES message(id) ON DELETE CASCADE,
  blob_id INTEGER REFERENCES blob(id),
  filename TEXT,
  mime_type TEXT NOT NULL DEFAULT 'application/octet-stream',
  section TEXT NOT NULL DEFAULT '',
  size_encoded INTEGER NOT NULL DEFAULT 0,
  size_decoded INTEGER NOT NULL DEFAULT 0,
  content_hash TEXT,
  is_inline INTEGER NOT NULL DEFAULT 0,
  transfer_encoding TEXT NOT NULL DEFAULT 'base64'
);
CREATE INDEX IF NOT EXISTS idx_att_message ON attachment(message_id);
CREATE INDEX IF NOT EXISTS idx_att_hash ON attachment(content_hash);

CREATE TABLE IF NOT EXISTS hold(
  id TEXT PRIMARY KEY,
  payload TEXT NOT NULL,
  created_at REAL NOT NULL,
  released_at REAL
);

CREATE TABLE IF NOT EXISTS message_hold(
  message_id INTEGER NOT NULL REFERENCES message(id) ON DELETE CASCADE,
  hold_id TEXT NOT NULL REFERENCES hold(id) ON DELETE CASCADE,
  PRIMARY KEY(message_id, hold_id)
);
CREATE INDEX IF NOT EXISTS idx_mh_hold ON message_hold(hold_id);

CREATE TABLE IF NOT EXISTS tag(
  id INTEGER PRIMARY KEY,
  name TEXT NOT NULL COLLATE NOCASE UNIQUE,
  colour TEXT NOT NULL DEFAULT 'grey',
  created_at REAL NOT NULL
);

CREATE TABLE IF NOT EXISTS message_tag(
  message_id INTEGER NOT NULL REFERENCES message(id) ON DELETE CASCADE,
  tag_id INTEGER NOT NULL REFERENCES tag(id) ON DELETE CASCADE,
  added_at REAL NOT NULL,
  added_by TEXT NOT NULL DEFAULT '',
  PRIMARY KEY(message_id, tag_id)
);
CREATE INDEX IF NOT EXISTS idx_message_tag_tag ON message_tag(tag_id);

CREATE TABLE IF NOT EXISTS message_note(
  id INTEGER PRIMARY KEY,
  message_id INTEGER NOT NULL REFERENCES message(id) ON DELETE CASCADE,
  body TEXT NOT NULL,
  author TEXT NOT NULL,
  created_at REAL NOT NULL,
  updated_at REAL NOT NULL
);
CREATE INDEX IF NOT EXISTS idx_note_message ON message_note(message_id);

CREATE TABLE IF NOT EXISTS smart_folder(
  id TEXT PRIMARY KEY,
  name TEXT NOT NULL,
  payload TEXT NOT NULL,
  position INTEGER NOT NULL DEFAULT 0,
  created_at REAL NOT NULL,
  updated_at REAL NOT NULL
);

CREATE TABLE IF NOT EXISTS tag_rule(
  id TEXT PRIMARY KEY,
  name TEXT NOT NULL,
  payload TEXT NOT NULL,
  enabled INTEGER NOT NULL DEFAULT 1,
  position INTEGER NOT NULL DEFAULT 0,
  created_at REAL NOT NULL,
  updated_at REAL NOT NULL
);

CREATE TABLE IF NOT EXISTS smart_folder_count(
  folder_id TEXT PRIMARY KEY REFERENCES smart_folder(id) ON DELETE CASCADE,
  count INTEGER NOT NULL,
  is_exact INTEGER NOT NULL DEFAULT 1,
  fingerprint TEXT NOT NULL,
  computed_at REAL NOT NULL,
  elapsed REAL NOT NULL DEFAULT 0
);

CREATE TABLE IF NOT EXISTS ingest_log(
  id INTEGER PRIMARY KEY,
  started_at REAL NOT NULL,
  finished_at REAL,
  source TEXT NOT NULL,
  added INTEGER NOT NULL DEFAULT 0,
  duplicates INTEGER NOT NULL DEFAULT 0,
  failed INTEGER NOT NULL DEFAULT 0,
  bytes_in INTEGER NOT NULL DEFAULT 0,
  bytes_out INTEGER NOT NULL DEFAULT 0,
  note TEXT
);
)sql";

}  // namespace ambervane
