// FicheroITVBase.h - the abstract byte backend behind every TFicheroITV.
// A backend only moves bytes and seeks; everything typed, cached or textual
// is done by the file object above it.
#ifndef VARDA_FILE_FICHEROITVBASE_H
#define VARDA_FILE_FICHEROITVBASE_H

class DString;
class TStringNomFitx;

class TFicheroITV_Base {
 public:
  virtual ~TFicheroITV_Base() {}
  // The mode is passed by reference so that a backend may adjust it.
  virtual bool Abre(const TStringNomFitx& name, int& mode, DString* err) = 0;
  // False when closing failed (data may not have reached the file); `err`,
  // when given, then receives the write-error message.
  virtual bool Cierra(DString* err) = 0;
  virtual bool Abierto() const = 0;
  // Exactly n bytes at the current position, or false.
  virtual bool LeeBytes(void* buf, int n) = 0;
  // All n bytes or false; a short or failed write is a failure.
  virtual bool GuardaBytes(const void* buf, int n) = 0;
  // False when the position cannot be reached (negative, not seekable...).
  virtual bool Posicionate64(long long pos) = 0;
  virtual bool eof() = 0;
  virtual long long PosActual64() = 0;
  virtual long long FileSize64() = 0;
  virtual int Flush() { return 0; }
  // A backend may expose its native handle; none does by default.
  virtual void* GetFilePointer() { return nullptr; }
  virtual bool SetEndOfFile() { return false; }
  // A backend that cannot seek freely makes the read cache hold the whole file.
  virtual bool AceptasRandomPos() { return true; }
  // The operating system's error number of the last failed operation; 0 when
  // that failure was no system error (the data ended before n bytes).
  virtual int Errno() const { return 0; }
  // Makes the data written so far durable (survives a power loss).
  virtual bool Sincroniza() { return Flush() == 0; }
  // Sets the file's length; the position does not move.
  virtual bool Trunca(long long largo) {
    (void)largo;
    return false;
  }
};

#endif
