#pragma once

#include <json/value.h>

#include <string>

#include "vrelcore/export.h"

namespace VrelDRCore {

// What the last operation of an object ended with: a code, 0 for success, and a message, which may
// be any JSON value and is null when there is none.
//
// Recording is possible on a const object: operations that change nothing of their own still have
// an outcome to tell. One object belongs to one thread.
class VREL_API ErrRecorder {
 public:
  ErrRecorder() = default;
  ErrRecorder(const ErrRecorder&) = default;
  ErrRecorder(ErrRecorder&&) = default;
  ErrRecorder& operator=(const ErrRecorder&) = default;
  ErrRecorder& operator=(ErrRecorder&&) = default;

  // {"err_code": code}, with "err_code_str" when the code has a text and "err_msg" when there is a
  // message.
  virtual Json::Value GetErr() const {
    Json::Value err(Json::objectValue);
    err["err_code"] = errCode_;
    const std::string text = GetErrCodeStr(errCode_);
    if (!text.empty()) err["err_code_str"] = text;
    if (!errMsg_.isNull()) err["err_msg"] = errMsg_;
    return err;
  }

  // The text of a code, empty when it has none. The base knows no texts.
  virtual std::string GetErrCodeStr(int /*code*/) const { return {}; }

  virtual ~ErrRecorder() = default;

  int GetErrCode() const { return errCode_; }
  const Json::Value& GetErrMsg() const { return errMsg_; }

  void SetErr(int code, const Json::Value& msg = Json::Value()) const {
    errCode_ = code;
    errMsg_ = msg;
  }

 private:
  mutable int errCode_ = 0;
  mutable Json::Value errMsg_;
};

}  // namespace VrelDRCore
